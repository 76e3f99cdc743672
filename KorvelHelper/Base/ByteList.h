#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace korvel {

using ByteList = std::vector<std::uint8_t>;

/// A list in brackets, in decimal: `[0, 80]`, and `[]` for an empty one.
std::string decimalList(std::span<const std::uint8_t> bytes);
std::string decimalList(std::span<const std::int64_t> numbers);

/// Two lower-case hexadecimal digits a byte, nothing in between.
std::string lowerHex(std::span<const std::uint8_t> bytes);

}  // namespace korvel
