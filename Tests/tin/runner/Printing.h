#pragma once

#include <concepts>
#include <cstdio>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>

namespace testing {

template <class Value>
std::string printed(const Value& value);

inline std::string printedNumber(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

template <class Value>
std::string printedOptional(const std::optional<Value>& value) {
  return value ? printed(*value) : "none";
}

template <std::ranges::range Values>
std::string printedList(const Values& values) {
  std::string text = "{";
  for (const auto& each : values) {
    if (text.size() > 1) text += ", ";
    text += printed(each);
  }
  return text + "}";
}

/// A value as a failure shows it; a value of an unknown kind is only named.
template <class Value>
std::string printed(const Value& value) {
  if constexpr (std::is_same_v<Value, bool>) {
    return value ? "true" : "false";
  } else if constexpr (std::is_null_pointer_v<Value>) {
    return "null";
  } else if constexpr (std::is_convertible_v<const Value&, std::string_view>) {
    return '"' + std::string(std::string_view(value)) + '"';
  } else if constexpr (std::is_pointer_v<Value>) {
    return value == nullptr ? "null" : "a pointer";
  } else if constexpr (std::integral<Value>) {
    return std::to_string(value);
  } else if constexpr (std::is_enum_v<Value>) {
    return std::to_string(static_cast<long long>(value));
  } else if constexpr (std::floating_point<Value>) {
    return printedNumber(value);
  } else if constexpr (requires { printedOptional(value); }) {
    return printedOptional(value);
  } else if constexpr (requires { printedList(value); }) {
    return printedList(value);
  } else {
    return "a value that has no text";
  }
}

}  // namespace testing
