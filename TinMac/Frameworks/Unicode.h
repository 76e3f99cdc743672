#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Texts as the frameworks keep them: UTF-8, in which a lone surrogate stands as the three bytes
/// that its number would have.
namespace tinmac {

/// UTF-8 without exceptions: no surrogate, nothing overlong, nothing above U+10FFFF.
bool isUtf8(std::string_view bytes);
/// The same, with lone surrogates allowed.
bool isText(std::string_view bytes);

/// Of a text.
std::vector<char16_t> utf16Units(std::string_view text);
std::size_t utf16Length(std::string_view text);
std::string textOf(const char16_t* units, std::size_t count);

void appendUtf8(std::string& text, char32_t character);

inline bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
inline bool isLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }
inline char32_t joined(char16_t high, char16_t low) {
  return 0x10000 + ((static_cast<char32_t>(high) - 0xD800) << 10U) + (low - 0xDC00U);
}

}  // namespace tinmac
