#include "TinMac/Frameworks/Unicode.h"

namespace tinmac {

namespace {

constexpr char32_t invalid = 0xFFFFFFFF;

/// How many bytes a character takes that begins so; 0: nothing begins so.
std::size_t lengthFrom(std::uint8_t first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  if (first >= 0xF0 && first < 0xF5) return 4;
  return 0;
}

/// Reads one character and moves past it.
char32_t next(std::string_view bytes, std::size_t& position) {
  const auto first = static_cast<std::uint8_t>(bytes[position]);
  const std::size_t length = lengthFrom(first);
  if (length == 0 || length > bytes.size() - position) return invalid;
  char32_t character = length == 1 ? first : first & (0xFFU >> (length + 1));
  for (std::size_t index = 1; index < length; ++index) {
    const auto byte = static_cast<std::uint8_t>(bytes[position + index]);
    if ((byte & 0xC0U) != 0x80) return invalid;
    character = (character << 6U) | (byte & 0x3FU);
  }
  const bool overlong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
  if (overlong || character > 0x10FFFF) return invalid;
  position += length;
  return character;
}

bool isSurrogate(char32_t character) { return character >= 0xD800 && character < 0xE000; }

template <class Allowed>
bool allAre(std::string_view bytes, Allowed allowed) {
  for (std::size_t position = 0; position < bytes.size();) {
    const char32_t character = next(bytes, position);
    if (character == invalid || !allowed(character)) return false;
  }
  return true;
}

}  // namespace

bool isUtf8(std::string_view bytes) {
  return allAre(bytes, [](char32_t character) { return !isSurrogate(character); });
}

bool isText(std::string_view bytes) {
  return allAre(bytes, [](char32_t) { return true; });
}

std::vector<char16_t> utf16Units(std::string_view text) {
  std::vector<char16_t> units;
  units.reserve(text.size());
  for (std::size_t position = 0; position < text.size();) {
    const char32_t character = next(text, position);
    if (character < 0x10000) {
      units.push_back(static_cast<char16_t>(character));
    } else {
      units.push_back(static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10U)));
      units.push_back(static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FFU)));
    }
  }
  return units;
}

std::size_t utf16Length(std::string_view text) {
  std::size_t length = 0;
  for (std::size_t position = 0; position < text.size();) {
    length += next(text, position) < 0x10000 ? 1 : 2;
  }
  return length;
}

std::string textOf(const char16_t* units, std::size_t count) {
  std::string text;
  for (std::size_t index = 0; index < count; ++index) {
    const bool pair =
        isHighSurrogate(units[index]) && index + 1 < count && isLowSurrogate(units[index + 1]);
    appendUtf8(text, pair ? joined(units[index], units[index + 1]) : units[index]);
    if (pair) ++index;
  }
  return text;
}

void appendUtf8(std::string& text, char32_t character) {
  const auto tail = [&](unsigned shift) {
    text.push_back(static_cast<char>(0x80U | ((character >> shift) & 0x3FU)));
  };
  if (character < 0x80) {
    text.push_back(static_cast<char>(character));
  } else if (character < 0x800) {
    text.push_back(static_cast<char>(0xC0U | (character >> 6U)));
    tail(0);
  } else if (character < 0x10000) {
    text.push_back(static_cast<char>(0xE0U | (character >> 12U)));
    tail(6);
    tail(0);
  } else {
    text.push_back(static_cast<char>(0xF0U | (character >> 18U)));
    tail(12);
    tail(6);
    tail(0);
  }
}

}  // namespace tinmac
