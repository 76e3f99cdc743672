#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Base/ErrorObject.h"
#include "Platform/XPCConnection.h"
#include "VirtualMac/Remote/Wire.h"

namespace virtualmac {

/// The messages of the helper's service: what a client sends, and what comes back.
///
///   call   1, ticket, selector, number of arguments (one byte), each a property-list value
///   reply  2, ticket, number of values (one byte), each 0 and a property-list value (absent for
///          nil), or 1 and an error
///
/// Tickets are the client's; one-way messages carry 0. Everything is checked where it arrives: a
/// body that does not read to its very end, an operation that the protocol lacks, an argument of
/// another type end that one connection.

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

enum class XPCArgument : std::uint8_t { None, UInt8, Boolean };
enum class XPCAnswer : std::uint8_t { Pid, Data, Outcome, None };

/// One operation of the protocol, as it travels.
struct XPCOperation {
  std::string_view selector;
  XPCArgument argument;
  XPCAnswer answer;
};

/// Null: the protocol has no such operation.
const XPCOperation* xpcOperation(std::string_view selector);

/// Bodies of frames, and back; the error says what is wrong with the bytes.
std::string encode(const XPCCall& call);
std::string encode(const XPCReply& reply);
std::expected<XPCCall, std::string> decodeXPCCall(std::string_view body);
std::expected<XPCReply, std::string> decodeXPCReply(std::string_view body);

/// Whether the operation's arguments are these; else why not.
std::expected<void, std::string> checkArguments(const XPCOperation& operation,
                                                const std::vector<korvel::PropertyValue>& given);

/// Whether the operation may answer with these values, by its declaration and by the classes that
/// the interface names; an argument without a setting takes what its declaration allows.
std::expected<void, std::string> checkReply(const XPCOperation& operation,
                                            const std::vector<XPCValue>& values,
                                            const korvel::XPCInterface& interface);

}  // namespace virtualmac
