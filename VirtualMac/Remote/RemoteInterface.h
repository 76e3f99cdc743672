#pragma once

#include <cstddef>

#include "VirtualMac/Remote/HelperHost.h"
#include "VirtualMac/Remote/MachineChannel.h"
#include "VirtualMac/Schedule/SeamInterface.h"

namespace virtualmac {

/// The calls of HelperHost, which cross the socket as the seam's do.
enum class HostCall : CallNumber {
#define SEAM_CALL(id, interface, method, kind) id,
#include "VirtualMac/Remote/HostCalls.def"
#undef SEAM_CALL
};

inline constexpr std::size_t hostCallCount = 0
#define SEAM_CALL(id, interface, method, kind) +1
#include "VirtualMac/Remote/HostCalls.def"
#undef SEAM_CALL
    ;

#define SEAM_CALL(id, interface, method, kind) SEAM_LINE(HostCall::id, interface, method)
#include "VirtualMac/Remote/HostCalls.def"
#undef SEAM_CALL

/// The seam's calls are numbered as their table lists them; the host's follow.
constexpr CallNumber callNumber(SeamCall call) { return static_cast<CallNumber>(call); }
constexpr CallNumber callNumber(HostCall call) {
  return static_cast<CallNumber>(seamCallCount + static_cast<CallNumber>(call));
}

/// True: the call gives something back. It cannot fail, so its result says nothing.
constexpr bool givesBack(SeamCall call) { return describe(call).kind == FailureKind::Release; }
constexpr bool givesBack(HostCall) { return false; }

/// Makes a call over the channel. The arguments and the result are those of the declaration.
template <class SeamHeader>
class ChannelCalls : public SeamHeader {
 public:
  using Interface = SeamHeader;
  explicit ChannelCalls(MachineChannel& machineChannel) : channel(machineChannel) {}

 protected:
  template <auto Call, class Result, class... Arguments>
  Result make(std::remove_reference_t<Arguments>&... arguments) {
    if constexpr (givesBack(Call) && !(isOutArgument<Arguments> || ...)) {
      channel.giveBack(callNumber(Call), arguments...);
      return Result();
    } else {
      return channel.call<Result, Arguments...>(callNumber(Call), arguments...);
    }
  }

  MachineChannel& channel;
};

/// The helper's half of the remote seam.
template <class SeamHeader>
using RemoteInterface = SeamInterface<ChannelCalls<SeamHeader>>;
using RemoteHostInterface =
    typename SeamStack<ChannelCalls<HelperHost>, HostCall, hostCallCount>::Type;

}  // namespace virtualmac
