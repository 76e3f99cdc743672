#include "Base/ByteList.h"

#include <array>
#include <charconv>
#include <string_view>

namespace korvel {

namespace {

template <class Number>
std::string bracketed(std::span<const Number> numbers) {
  std::string text = "[";
  std::array<char, 24> digits{};
  for (const Number number : numbers) {
    if (text.size() > 1) text += ", ";
    const auto end =
        std::to_chars(digits.data(), digits.data() + digits.size(), std::int64_t{number}).ptr;
    text.append(digits.data(), end);
  }
  text += ']';
  return text;
}

}  // namespace

std::string decimalList(std::span<const std::uint8_t> bytes) { return bracketed(bytes); }
std::string decimalList(std::span<const std::int64_t> numbers) { return bracketed(numbers); }

std::string lowerHex(std::span<const std::uint8_t> bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4U];
    text += digits[byte & 0x0FU];
  }
  return text;
}

}  // namespace korvel
