#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Base/Reply.h"
#include "Platform/XPCConnection.h"
#include "VirtualMac/InProcess/InProcessXPC.h"
#include "VirtualMac/InProcess/ServiceEndpoint.h"

namespace virtualmac {

/// What a reply needs on its way back. It may be given on any thread of the helper, also after its
/// connection is over; then nobody hears it.
struct ReplyRoute {
  XPCSurroundings around;
  std::shared_ptr<ClientEnd> client;
  AppCallRef call;
  korvel::XPCInterface interface;
};

korvel::PidReply makePidReply(ReplyRoute route);
korvel::DataReply makeDataReply(ReplyRoute route);
korvel::Reply makeReply(ReplyRoute route);

/// Why the interface's settings do not let this error through; none: they do.
std::optional<std::string> errorRejected(const korvel::XPCInterface& interface,
                                         const std::string& selector,
                                         const korvel::ErrorObject& error);
/// The same for a payload of bytes.
std::optional<std::string> dataRejected(const korvel::XPCInterface& interface,
                                        const std::string& selector);

}  // namespace virtualmac
