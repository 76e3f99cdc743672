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
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

// Implementations of interfaces, made from a table of calls. Each line of a table gives a class
// template that overrides the line's function; SeamInterface stacks those of one interface on each
// other. A function without a line stays abstract, and a line whose function does not exist does
// not compile, so a table and its interfaces cannot drift apart.

/// The function that a line of a table stands for, and its interface.
template <auto Call>
struct SeamLine;

/// Overrides one function of Base by `Base::make<Call, Result, Arguments...>(arguments...)`.
template <auto Call, class Base, class Method>
class SeamOverride;

#define SEAM_LINE(call, interface, method)                                            \
  template <>                                                                         \
  struct SeamLine<call> {                                                             \
    using Interface = interface;                                                      \
    static constexpr auto function = &interface::method;                              \
  };                                                                                  \
  template <class Base, class Result, class... Arguments>                             \
  class SeamOverride<call, Base, Result (interface::*)(Arguments...)> : public Base { \
   public:                                                                            \
    using Base::Base;                                                                 \
    Result method(Arguments... arguments) override {                                  \
      return this->template make<call, Result, Arguments...>(arguments...);           \
    }                                                                                 \
  };

#define SEAM_CALL(id, interface, method, kind) SEAM_LINE(SeamCall::id, korvel::interface, method)
#include "VirtualMac/Schedule/Calls.def"
#undef SEAM_CALL

/// Base with the overrides of the lines from `Index` on that belong to Base::Interface.
template <class Base, class Table, std::size_t Count, std::size_t Index = 0>
struct SeamStack {
  static constexpr auto call = static_cast<Table>(Index);
  using Line = SeamLine<call>;
  using Next =
      std::conditional_t<std::is_same_v<typename Line::Interface, typename Base::Interface>,
                         SeamOverride<call, Base, std::remove_const_t<decltype(Line::function)>>,
                         Base>;
  using Type = typename SeamStack<Next, Table, Count, Index + 1>::Type;
};
template <class Base, class Table, std::size_t Count>
struct SeamStack<Base, Table, Count, Count> {
  using Type = Base;
};

/// Base, which derives from Base::Interface and says in `make` how a call is made, with an override
/// for each line of the table of platform calls.
template <class Base>
using SeamInterface = typename SeamStack<Base, SeamCall, seamCallCount>::Type;

}  // namespace virtualmac
