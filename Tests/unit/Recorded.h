#pragma once

#include <gtest/gtest.h>

#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "VirtualMac/Schedule/SeamInterface.h"

namespace korvel::test {

/// Recorded<X> is X over another X: it notes every call as text, the function's name and what the
/// caller passes by value ("release 33001"), and then makes it. Handles are hexadecimal. Contents
/// (bytes, property values, callbacks) and variables that the call fills are left out of the text.
template <class SeamHeader>
class RecordedCalls : public SeamHeader {
 public:
  using Interface = SeamHeader;
  RecordedCalls(Interface& madeBy, std::vector<std::string>& noted) : inner(madeBy), calls(noted) {}

 protected:
  template <virtualmac::SeamCall Call, class Result, class... Arguments>
  Result make(Arguments... arguments) {
    std::string text(virtualmac::describe(Call).method);
    (note<Arguments>(text, arguments), ...);
    calls.push_back(std::move(text));
    return (inner.*virtualmac::SeamLine<Call>::function)(arguments...);
  }

  Interface& inner;
  std::vector<std::string>& calls;

 private:
  template <class Argument, class Value>
  static void note(std::string& text, const Value& value) {
    constexpr bool isFilled =
        std::is_lvalue_reference_v<Argument> && !std::is_const_v<std::remove_reference_t<Argument>>;
    if constexpr (std::same_as<Argument, ErrorSlot&>) {
      EXPECT_FALSE(value.has_value()) << "the slot must be empty before the call";
    } else if constexpr (isFilled) {
      return;
    } else if constexpr (std::convertible_to<Value, std::string_view>) {
      text.append(" ").append(std::string_view(value));
    } else if constexpr (std::same_as<Value, HandleRef>) {
      constexpr std::string_view digits = "0123456789abcdef";
      std::string number;
      for (HandleRef left = value; left != 0; left /= 16) number.insert(0, 1, digits[left % 16]);
      text += " 0x" + number;
    } else if constexpr (std::integral<Value>) {
      text += ' ' + std::to_string(value);
    }
  }
};

template <class SeamHeader>
using Recorded = virtualmac::SeamInterface<RecordedCalls<SeamHeader>>;

}  // namespace korvel::test
