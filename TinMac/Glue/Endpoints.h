#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/XPCListener.h"
#include "TinMac/Frameworks/BelowServices.h"
#include "VirtualMac/Remote/FrameSocket.h"

namespace tinmac {

/// A delegate of the machine's listeners that asks the program's.
std::shared_ptr<korvel::XPCListenerDelegate> makeAskingDelegate(const TinListener& listener);

/// A new connection to the listener of this process that has this endpoint; none: it was
/// invalidated.
std::optional<virtualmac::FrameSocket> connectToEndpoint(std::uint32_t endpoint);
/// Waits, for a few seconds at most, until no more than so many of these connections are left.
void awaitConnections(std::size_t most);

}  // namespace tinmac
