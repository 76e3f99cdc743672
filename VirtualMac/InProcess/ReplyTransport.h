#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Operations.h"
#include "Platform/XPCConnection.h"
#include "VirtualMac/InProcess/InProcessXPC.h"
#include "VirtualMac/InProcess/ServiceEndpoint.h"

namespace virtualmac {

/// The way back of one reply. It may be given on any thread of the helper, also after its
/// connection is over; then nobody hears it.
struct ReplyRoute {
  XPCSurroundings around;
  std::shared_ptr<ClientEnd> client;
  AppCallRef call;
  const korvel::Operation& operation;
  korvel::XPCInterface interface;
};

/// Calls the route's operation, with a reply that goes back this way.
void deliverCall(const ReplyRoute& route, korvel::KorvelHelperProtocol& helper,
                 std::uint8_t argument);

/// Why the interface's settings do not let this error through; none: they do.
std::optional<std::string> errorRejected(const korvel::XPCInterface& interface,
                                         const std::string& selector,
                                         const korvel::ErrorObject& error);
/// The same for a payload of bytes.
std::optional<std::string> dataRejected(const korvel::XPCInterface& interface,
                                        const std::string& selector);

}  // namespace virtualmac
