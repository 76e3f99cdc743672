#pragma once

#include <cstddef>
#include <type_traits>

#include "Platform/CodeSigning.h"
#include "Platform/FileSystem.h"
#include "Platform/IORegistry.h"
#include "Platform/PowerAssertions.h"
#include "Platform/PowerSettings.h"
#include "Platform/PowerSources.h"
#include "Platform/RootPowerDomain.h"
#include "Platform/SMCUserClient.h"
#include "Platform/SmartChargeRuntime.h"
#include "Platform/UnifiedLog.h"
#include "Platform/WallClock.h"
#include "VirtualMac/Remote/HelperHost.h"
#include "VirtualMac/Remote/MachineChannel.h"

namespace virtualmac {

/// Every call that may cross the socket: the seam's, numbered as SeamCall is, then the host's.
enum class RemoteCall : CallNumber {
#define SEAM_CALL(id, interface, method, kind) id,
#include "VirtualMac/Schedule/Calls.def"
// The host's calls follow the seam's.
#include "VirtualMac/Remote/HostCalls.def"
#undef SEAM_CALL
};

inline constexpr std::size_t remoteCallCount = 0
#define SEAM_CALL(id, interface, method, kind) +1
#include "VirtualMac/Schedule/Calls.def"
// The host's calls follow the seam's.
#include "VirtualMac/Remote/HostCalls.def"
#undef SEAM_CALL
    ;

/// The helper's half of the remote seam, made from the tables of calls. Each line of a table gives
/// a class template that overrides that one function by a call over the channel; the arguments and
/// the result are those of the interface's own declaration. RemoteInterface<X> is X with the
/// overrides of all its lines stacked on each other. A function without a line stays abstract, and
/// a line whose function does not exist does not compile: table and seam cannot drift apart.
namespace remotecalls {

using korvel::CodeSigning;
using korvel::FileSystem;
using korvel::IORegistry;
using korvel::PowerAssertions;
using korvel::PowerSettings;
using korvel::PowerSources;
using korvel::RootPowerDomain;
using korvel::SmartChargeRuntime;
using korvel::SMCUserClient;
using korvel::UnifiedLog;
using korvel::WallClock;
using virtualmac::HelperHost;

template <class Interface>
class Connected : public Interface {
 public:
  explicit Connected(MachineChannel& machineChannel) : channel(machineChannel) {}

 protected:
  MachineChannel& channel;
};

/// Which function a call is; and a class that overrides it.
template <RemoteCall Call>
struct Line;
template <RemoteCall Call, class Base, class Method>
class Override;

#define SEAM_CALL(id, interface, method, kind)                                              \
  template <>                                                                               \
  struct Line<RemoteCall::id> {                                                             \
    using Interface = interface;                                                            \
    static constexpr auto function = &interface::method;                                    \
  };                                                                                        \
  template <class Base, class Result, class... Arguments>                                   \
  class Override<RemoteCall::id, Base, Result (interface::*)(Arguments...)> : public Base { \
   public:                                                                                  \
    using Base::Base;                                                                       \
    Result method(Arguments... arguments) override {                                        \
      return this->channel.template call<Result, Arguments...>(                             \
          static_cast<CallNumber>(RemoteCall::id), arguments...);                           \
    }                                                                                       \
  };
#include "VirtualMac/Schedule/Calls.def"
// The host's calls follow the seam's.
#include "VirtualMac/Remote/HostCalls.def"
#undef SEAM_CALL

/// Base with the overrides of all lines from `Index` on that belong to Interface.
template <class Interface, class Base, std::size_t Index>
struct Stack {
  static constexpr auto call = static_cast<RemoteCall>(Index);
  using Next =
      std::conditional_t<std::is_same_v<typename Line<call>::Interface, Interface>,
                         Override<call, Base, std::remove_const_t<decltype(Line<call>::function)>>,
                         Base>;
  using Type = typename Stack<Interface, Next, Index + 1>::Type;
};
template <class Interface, class Base>
struct Stack<Interface, Base, remoteCallCount> {
  using Type = Base;
};

}  // namespace remotecalls

template <class Interface>
using RemoteInterface =
    typename remotecalls::Stack<Interface, remotecalls::Connected<Interface>, 0>::Type;

}  // namespace virtualmac
