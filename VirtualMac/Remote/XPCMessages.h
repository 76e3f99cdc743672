#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Base/ErrorObject.h"
#include "Operations.h"
#include "Platform/XPCConnection.h"
#include "VirtualMac/Remote/Wire.h"

namespace virtualmac {

/// The messages of the helper's service, from a client and back to it.
///
///   call   1, ticket, selector, number of arguments (one byte), each a property-list value
///   reply  2, ticket, number of values (one byte), each 0 and a property-list value (absent for
///          nil), or 1 and an error
///
/// The client chooses the ticket; a one-way message carries 0. The receiver ends the connection
/// when a body does not read to its very end, the protocol lacks the operation, or an argument has
/// another type.

struct XPCCall {
  std::uint32_t ticket = 0;
  std::string selector;
  std::vector<korvel::PropertyValue> arguments;
};

using XPCValue = std::variant<korvel::PropertyValue, korvel::ErrorObject>;

struct XPCReply {
  std::uint32_t ticket = 0;
  std::vector<XPCValue> values;
};

/// Bodies of frames, and back; the error says what is wrong with the bytes.
std::string encode(const XPCCall& call);
std::string encode(const XPCReply& reply);
std::expected<XPCCall, std::string> decodeXPCCall(std::string_view body);
std::expected<XPCReply, std::string> decodeXPCReply(std::string_view body);

/// The call of an operation, and back; else why the operation does not take what was `given`. An
/// argument is a number; 0 stands for none and for off, 1 for on.
XPCCall callOf(const korvel::Operation& operation, std::uint8_t argument, std::uint32_t ticket);
std::expected<std::uint8_t, std::string> argumentIn(
    const korvel::Operation& operation, const std::vector<korvel::PropertyValue>& given);

/// Checks that the operation may answer with these values, by its declaration and by the classes
/// that the interface names. An argument without a setting takes any class its declaration allows.
std::expected<void, std::string> checkReply(const korvel::Operation& operation,
                                            const std::vector<XPCValue>& values,
                                            const korvel::XPCInterface& interface);

}  // namespace virtualmac
