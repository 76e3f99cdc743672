#pragma once

#include <concepts>
#include <cstdint>
#include <expected>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "Platform/Platform.h"
#include "Tests/model/Values.h"
#include "VirtualMac/Schedule/SeamInterface.h"

namespace model {

/// Words of a call: values that go in. Handles are left out, and so is what comes back.
template <class Interface>
struct Words {
  static constexpr bool namesHandles = std::is_same_v<Interface, korvel::PowerAssertions> ||
                                       std::is_same_v<Interface, korvel::RootPowerDomain>;
  std::string text;

  void add(std::string_view word) { text += ' ' + std::string(word); }
  void add(const std::string& word) { text += ' ' + word; }
  void add(std::span<const char> bytes) { text += ' ' + std::string(bytes.data(), bytes.size()); }
  void add(const korvel::PropertyValue& value) { text += ' ' + listText(value); }
  void add(korvel::LogLevel level) { add(std::to_string(static_cast<int>(level))); }
  template <class Number>
    requires std::is_integral_v<Number>
  void add(Number number) {
    constexpr bool isHandle = std::is_same_v<Number, korvel::HandleRef> ||
                              (std::is_same_v<Number, korvel::ObjectRef> &&
                               !std::is_same_v<Interface, korvel::FileSystem>);
    if (!isHandle || namesHandles) add(std::to_string(number));
  }
};

inline void take(Answer& answer, const korvel::PropertyValue& value) {
  flatten(answer.values, value);
}
inline void take(Answer& answer, const korvel::PosixResult& result) {
  answer.code = result.value;
  answer.number = result.error;
}
inline void take(Answer& answer, const korvel::Date& date) {
  answer.real = date.secondsSinceReference;
}
inline void take(Answer& answer, const korvel::PowerSourceList& list) {
  answer.code = list.handle == 0 ? 0 : 1;
  answer.number = static_cast<std::int64_t>(list.elements.size());
  if (!list.isArray) answer.values["no array"];
}
template <class Value>
void take(Answer& answer, const std::expected<Value, korvel::ErrorObject>& result) {
  answer.code = result ? 0 : 1;
  if (!result) {
    answer.text = errorText(result.error());
  } else if constexpr (!std::is_void_v<Value>) {
    answer.text = *result;
  }
}
template <class Number>
  requires std::is_integral_v<Number>
void take(Answer& answer, Number number) {
  answer.code = static_cast<std::int64_t>(number);
}

/// An out-parameter after the call.
inline void takeOut(Answer& answer, std::uint32_t value) { answer.number = value; }
inline void takeOut(Answer& /*answer*/, korvel::HandleRef /*value*/) {}
inline void takeOut(Answer& answer, const korvel::PropertyValue& value) { take(answer, value); }
inline void takeOut(Answer& answer, const korvel::ErrorSlot& slot) {
  if (slot) answer.values["error"] = *slot;
}

/// Calls that nobody sees: they give back what an earlier call gave, or concern the main loop.
constexpr bool isSilent(virtualmac::SeamCall call) {
  using virtualmac::SeamCall;
  const bool releases = virtualmac::describe(call).kind == virtualmac::FailureKind::Release;
  return (releases && call != SeamCall::fileUmask && call != SeamCall::smcClose) ||
         call == SeamCall::powerGetSource || call == SeamCall::powerMainRunLoop ||
         call == SeamCall::powerAddSource;
}

}  // namespace model
