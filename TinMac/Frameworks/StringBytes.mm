#include <limits>
#include <string>

#include "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Objects.h"
#include "TinMac/Frameworks/Unicode.h"

namespace tinmac {

namespace {

CFStringRef adopted(std::string_view text) { return (CFStringRef)makeString(text); }

std::string fromLatin1(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) appendUtf8(text, static_cast<std::uint8_t>(byte));
  return text;
}

bool isAscii(std::string_view bytes) {
  for (const char byte : bytes) {
    if (static_cast<std::uint8_t>(byte) >= 0x80) return false;
  }
  return true;
}

/// Where converted bytes go: into a buffer as far as it reaches, or nowhere, to be counted.
struct Destination {
  UInt8* buffer;
  CFIndex capacity;
  CFIndex used = 0;

  bool take(std::string_view bytes) {
    const auto size = static_cast<CFIndex>(bytes.size());
    if (buffer != nullptr && size > capacity - used) return false;
    if (buffer != nullptr) std::memcpy(buffer + used, bytes.data(), bytes.size());
    used += size;
    return true;
  }
};

char32_t highestCharacter(CFStringEncoding encoding) {
  switch (encoding) {
    case kCFStringEncodingUTF8:
      return 0x10FFFF;
    case kCFStringEncodingISOLatin1:
      return 0xFF;
    case kCFStringEncodingASCII:
      return 0x7F;
    default:
      trap("this encoding is not built", std::to_string(encoding));
  }
}

std::string encoded(char32_t character, CFStringEncoding encoding) {
  if (encoding != kCFStringEncodingUTF8) return std::string(1, static_cast<char>(character));
  std::string bytes;
  appendUtf8(bytes, character);
  return bytes;
}

/// Converts units one character after the other. Returns how many of them were converted.
CFIndex convert(const char16_t* units, std::size_t count, CFStringEncoding encoding, UInt8 lossByte,
                Destination& destination) {
  std::size_t position = 0;
  while (position < count) {
    const char16_t unit = units[position];
    const bool pair =
        isHighSurrogate(unit) && position + 1 < count && isLowSurrogate(units[position + 1]);
    const bool lone = !pair && (isHighSurrogate(unit) || isLowSurrogate(unit));
    const char32_t character = pair ? joined(unit, units[position + 1]) : unit;
    const bool lost = lone || character > highestCharacter(encoding);
    if (lost && lossByte == 0) break;
    const std::string bytes =
        lost ? std::string(1, static_cast<char>(lossByte)) : encoded(character, encoding);
    if (!destination.take(bytes)) break;
    position += pair ? 2 : 1;
  }
  return static_cast<CFIndex>(position);
}

}  // namespace

}  // namespace tinmac

using namespace tinmac;

TIN_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes,
                                               CFIndex numBytes, CFStringEncoding encoding,
                                               Boolean isExternalRepresentation) {
  expectDefaultAllocator(allocator, "CFStringCreateWithBytes");
  if (numBytes < 0) trap("a negative length", "CFStringCreateWithBytes");
  if (bytes == nullptr && numBytes > 0)
    trap("a null pointer was passed", "CFStringCreateWithBytes");
  expectNumber<int>(isExternalRepresentation, 0,
                    "CFStringCreateWithBytes, external representation");
  const std::string_view given(reinterpret_cast<const char*>(bytes),
                               static_cast<std::size_t>(numBytes));
  switch (encoding) {
    case kCFStringEncodingUTF8:
      return isUtf8(given) ? adopted(given) : nullptr;
    case kCFStringEncodingISOLatin1:
      return adopted(fromLatin1(given));
    case kCFStringEncodingASCII:
      return isAscii(given) ? adopted(given) : nullptr;
    default:
      trap("this encoding is not built", std::to_string(encoding));
  }
}

TIN_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* chars,
                                                    CFIndex numChars) {
  expectDefaultAllocator(allocator, "CFStringCreateWithCharacters");
  if (numChars < 0) trap("a negative length", "CFStringCreateWithCharacters");
  return adopted(
      textOf(reinterpret_cast<const char16_t*>(chars), static_cast<std::size_t>(numChars)));
}

TIN_EXPORT CFIndex CFStringGetLength(CFStringRef string) {
  expectKind((id)string, [NSString class], "CFStringGetLength");
  return static_cast<CFIndex>(utf16Length(utf8((NSString*)string)));
}

TIN_EXPORT CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                                    UInt8 lossByte, Boolean isExternalRepresentation, UInt8* buffer,
                                    CFIndex maxBufLen, CFIndex* usedBufLen) {
  expectKind((id)string, [NSString class], "CFStringGetBytes");
  expectNumber<int>(isExternalRepresentation, 0, "CFStringGetBytes, external representation");
  const std::vector<char16_t> units = utf16Units(utf8((NSString*)string));
  const auto length = static_cast<CFIndex>(units.size());
  if (range.location < 0 || range.length < 0 || range.location > length ||
      range.length > length - range.location) {
    trap("a range beyond the text's end", "CFStringGetBytes");
  }
  Destination destination{buffer, maxBufLen};
  const CFIndex converted =
      convert(units.data() + range.location, static_cast<std::size_t>(range.length), encoding,
              lossByte, destination);
  if (usedBufLen != nullptr) *usedBufLen = destination.used;
  return converted;
}
