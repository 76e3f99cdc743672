// std::to_chars for a double with a format: the shortest digits that are read back as the same
// number.
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "TinMac/Frameworks/Below.h"

namespace {

/// The digits of a finite number without their zeros at the end, and the power of ten of the first.
struct Decimal {
  std::string digits;
  int exponent = 0;
};

constexpr int mostDigits = 17;

Decimal shortest(double size) {
  char text[32];
  for (int count = 1; count <= mostDigits; ++count) {
    std::snprintf(text, sizeof text, "%.*e", count - 1, size);
    if (std::strtod(text, nullptr) == size) break;
  }
  const char* mark = std::strchr(text, 'e');
  Decimal decimal;
  decimal.exponent = static_cast<int>(std::strtol(mark + 1, nullptr, 10));
  for (const char* each = text; each != mark; ++each) {
    if (*each != '.') decimal.digits += *each;
  }
  while (decimal.digits.size() > 1 && decimal.digits.back() == '0') decimal.digits.pop_back();
  return decimal;
}

/// Two digits of exponent at least.
std::string scientific(const Decimal& decimal) {
  std::string text = decimal.digits.substr(0, 1);
  if (decimal.digits.size() > 1) text += "." + decimal.digits.substr(1);
  const int size = decimal.exponent < 0 ? -decimal.exponent : decimal.exponent;
  text += decimal.exponent < 0 ? "e-" : "e+";
  if (size < 10) text += '0';
  return text + std::to_string(size);
}

std::string fixed(const Decimal& decimal, double size) {
  // From here on there are no fractions, and every digit of the number itself is written.
  constexpr double allWhole = 9007199254740992.0;
  if (size >= allWhole) {
    char text[320];
    std::snprintf(text, sizeof text, "%.0f", size);
    return text;
  }
  if (decimal.exponent < 0) {
    return "0." + std::string(static_cast<std::size_t>(-decimal.exponent - 1), '0') +
           decimal.digits;
  }
  const auto whole = static_cast<std::size_t>(decimal.exponent) + 1;
  if (decimal.digits.size() <= whole) {
    return decimal.digits + std::string(whole - decimal.digits.size(), '0');
  }
  return decimal.digits.substr(0, whole) + "." + decimal.digits.substr(whole);
}

std::string finite(double size, std::chars_format format) {
  const Decimal decimal = shortest(size);
  if (format == std::chars_format::fixed) return fixed(decimal, size);
  if (format == std::chars_format::scientific) return scientific(decimal);
  // As printf's %g without a precision chooses.
  const bool plain = decimal.exponent >= -4 && decimal.exponent < 6;
  return plain ? fixed(decimal, size) : scientific(decimal);
}

}  // namespace

_LIBCPP_BEGIN_NAMESPACE_STD

to_chars_result to_chars(char* first, char* last, double value, chars_format format) {
  if (format == chars_format::hex) tinTrap("this format is not built", "std::to_chars, hex");
  const string sign = signbit(value) ? "-" : "";
  const double size = fabs(value);
  const string text = sign + (isnan(value) ? "nan" : isinf(value) ? "inf" : finite(size, format));
  if (static_cast<size_t>(last - first) < text.size()) return {last, errc::value_too_large};
  memcpy(first, text.data(), text.size());
  return {first + text.size(), errc{}};
}

_LIBCPP_END_NAMESPACE_STD
