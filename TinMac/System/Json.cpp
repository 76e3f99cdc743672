#include "TinMac/System/Json.h"

#include <array>

namespace tinmac {

JsonWriter& JsonWriter::open(char bracket) {
  separate();
  written += bracket;
  follows = false;
  return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
  written += bracket;
  follows = true;
  return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
  separate();
  quote(name);
  written += ':';
  follows = false;
  return *this;
}

JsonWriter& JsonWriter::text(std::string_view value) {
  separate();
  quote(value);
  return *this;
}

JsonWriter& JsonWriter::number(std::int64_t value) {
  separate();
  written += std::to_string(value);
  return *this;
}

void JsonWriter::separate() {
  if (follows) written += ',';
  follows = true;
}

void JsonWriter::quote(std::string_view value) {
  constexpr std::string_view digits = "0123456789abcdef";
  constexpr unsigned firstPrintable = 0x20;
  written += '"';
  for (const char character : value) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      written += '\\';
      written += character;
    } else if (byte < firstPrintable) {
      written += "\\u00";
      written += digits[byte >> 4U];
      written += digits[byte & 0xfU];
    } else {
      written += character;
    }
  }
  written += '"';
}

}  // namespace tinmac
