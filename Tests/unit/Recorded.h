#pragma once

#include <gtest/gtest.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Base/PropertyValue.h"
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

namespace korvel::test {

/// Recorded<X> is X over another X: it notes every call as text, the function's name and what the
/// caller passes by value ("release 33001"), and then makes it. Handles are hexadecimal. Contents
/// (bytes, property values, callbacks) and variables that the call fills are left out of the text.
/// It is made from the table of calls, a class template an entry, stacked on each other.
namespace recording {

using virtualmac::SeamCall;

template <class Argument>
void note(std::string& text, const Argument& argument) {
  if constexpr (std::convertible_to<Argument, std::string_view>) {
    text.append(" ").append(std::string_view(argument));
  } else if constexpr (std::same_as<Argument, HandleRef>) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string number;
    for (HandleRef left = argument; left != 0; left /= 16) number.insert(0, 1, digits[left % 16]);
    text += " 0x" + number;
  } else if constexpr (std::integral<Argument>) {
    text += ' ' + std::to_string(argument);
  }
}

template <class Argument>
inline constexpr bool isFilled =
    std::is_lvalue_reference_v<Argument> && !std::is_const_v<std::remove_reference_t<Argument>>;

template <class Interface>
class Noting : public Interface {
 public:
  Noting(Interface& madeBy, std::vector<std::string>& noted) : inner(madeBy), calls(noted) {}

 protected:
  template <class... Arguments, class... Values>
  void note(std::string text, const Values&... values) {
    (noteOne<Arguments>(text, values), ...);
    calls.push_back(std::move(text));
  }
  template <class Argument, class Value>
  static void noteOne(std::string& text, const Value& value) {
    if constexpr (std::same_as<Argument, ErrorSlot&>) {
      EXPECT_FALSE(value.has_value()) << "the slot must be empty before the call";
    } else if constexpr (!isFilled<Argument>) {
      recording::note(text, value);
    }
  }

  Interface& inner;
  std::vector<std::string>& calls;
};

template <SeamCall Call>
struct Line;
template <SeamCall Call, class Base, class Method>
class Override;

#define SEAM_CALL(id, interface, method, kind)                                                    \
  template <>                                                                                     \
  struct Line<SeamCall::id> {                                                                     \
    using Interface = korvel::interface;                                                          \
    using Method = decltype(&Interface::method);                                                  \
  };                                                                                              \
  template <class Base, class Result, class... Arguments>                                         \
  class Override<SeamCall::id, Base, Result (korvel::interface::*)(Arguments...)> : public Base { \
   public:                                                                                        \
    using Base::Base;                                                                             \
    Result method(Arguments... arguments) override {                                              \
      this->template note<Arguments...>(#method, arguments...);                                   \
      return this->inner.method(arguments...);                                                    \
    }                                                                                             \
  };
#include "VirtualMac/Schedule/Calls.def"
#undef SEAM_CALL

/// Base with the overrides of all entries from `Index` on that belong to Interface.
template <class Interface, class Base, std::size_t Index = 0>
struct Stack {
  using Entry = Line<static_cast<SeamCall>(Index)>;
  using Next =
      std::conditional_t<std::is_same_v<typename Entry::Interface, Interface>,
                         Override<static_cast<SeamCall>(Index), Base, typename Entry::Method>,
                         Base>;
  using Type = typename Stack<Interface, Next, Index + 1>::Type;
};
template <class Interface, class Base>
struct Stack<Interface, Base, virtualmac::seamCallCount> {
  using Type = Base;
};

}  // namespace recording

template <class Interface>
using Recorded = typename recording::Stack<Interface, recording::Noting<Interface>>::Type;

}  // namespace korvel::test
