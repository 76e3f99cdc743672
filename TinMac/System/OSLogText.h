#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tinmac {

/// The message that a call of os_log makes of its format and of the buffer in which the compiler
/// packed the arguments: a byte of flags, the number of items, and for each item a descriptor, a
/// size and so many bytes. A string is told only when it is public, a scalar unless it is private.
/// An item, a conversion or a count that is not understood traps with its numbers.
std::string osLogText(const char* format, std::span<const std::uint8_t> buffer);

}  // namespace tinmac
