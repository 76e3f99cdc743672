#include <cstdlib>
#include <string>

#import "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Objects.h"
#include "TinMac/Frameworks/Unicode.h"

namespace tinmac {

namespace {

/// Reads one value. Whatever it gives has one reference that is the caller's; nil: the text is
/// none, and where it stopped reading is not told.
class JsonReader {
 public:
  explicit JsonReader(std::string_view json) : rest(json) {}

  /// The whole text, which is an object or an array.
  id container() {
    skipSpace();
    const bool isContainer = rest.starts_with('{') || rest.starts_with('[');
    const id read = isContainer ? value(0) : nil;
    skipSpace();
    if (rest.empty()) return read;
    [read release];
    return nil;
  }

 private:
  static constexpr int deepest = 512;

  void skipSpace() { rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size())); }

  bool take(std::string_view word) {
    skipSpace();
    if (!rest.starts_with(word)) return false;
    rest.remove_prefix(word.size());
    return true;
  }

  id value(int depth) {
    if (depth > deepest) return nil;
    if (take("{")) return object(depth);
    if (take("[")) return array(depth);
    if (take("\"")) return string();
    if (take("true")) return [booleanObject(true) retain];
    if (take("false")) return [booleanObject(false) retain];
    if (take("null")) return [(id)kCFNull retain];
    return number();
  }

  id object(int depth) {
    NSMutableDictionary* made = makeDictionary();
    if (take("}")) return made;
    do {
      NSString* key = take("\"") ? string() : nil;
      const id member = key != nil && take(":") ? value(depth + 1) : nil;
      if (member != nil) set(made, key, member);
      [key release];
      [member release];
      if (member == nil) return dropped(made);
    } while (take(","));
    return take("}") ? made : dropped(made);
  }

  id array(int depth) {
    NSMutableArray* made = makeArray();
    if (take("]")) return made;
    do {
      const id element = value(depth + 1);
      if (element == nil) return dropped(made);
      append(made, element);
      [element release];
    } while (take(","));
    return take("]") ? made : dropped(made);
  }

  static id dropped(id unfinished) {
    [unfinished release];
    return nil;
  }

  /// Behind the opening quote.
  NSString* string() {
    std::string text;
    while (!rest.empty() && rest.front() != '"') {
      const auto byte = static_cast<unsigned char>(rest.front());
      rest.remove_prefix(1);
      if (byte < 0x20) return nil;
      if (byte != '\\') {
        text += static_cast<char>(byte);
      } else if (!escape(text)) {
        return nil;
      }
    }
    if (rest.empty() || !isText(text)) return nil;
    rest.remove_prefix(1);
    return makeString(text);
  }

  bool escape(std::string& text) {
    constexpr std::string_view letters = "\"\\/bfnrt";
    constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
    if (rest.empty()) return false;
    const char letter = rest.front();
    rest.remove_prefix(1);
    if (letter == 'u') return codeUnits(text);
    const std::size_t found = letters.find(letter);
    if (found == std::string_view::npos) return false;
    text += meanings[found];
    return true;
  }

  /// Behind \u: one unit, or two that belong together.
  bool codeUnits(std::string& text) {
    char16_t first = 0;
    char16_t second = 0;
    if (!hexadecimal(first) || isLowSurrogate(first)) return false;
    if (!isHighSurrogate(first)) {
      appendUtf8(text, first);
      return true;
    }
    if (!rest.starts_with("\\u")) return false;
    rest.remove_prefix(2);
    if (!hexadecimal(second) || !isLowSurrogate(second)) return false;
    appendUtf8(text, joined(first, second));
    return true;
  }

  bool hexadecimal(char16_t& unit) {
    constexpr std::size_t digits = 4;
    const std::string given(rest.substr(0, digits));
    if (given.size() < digits ||
        given.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
      return false;
    }
    unit = static_cast<char16_t>(std::strtol(given.c_str(), nullptr, 16));
    rest.remove_prefix(digits);
    return true;
  }

  id number() {
    const std::size_t length = std::min(rest.find_first_not_of("0123456789+-.eE"), rest.size());
    const std::string text(rest.substr(0, length));
    const bool isReal = text.find_first_of(".eE") != std::string::npos;
    char* end = nullptr;
    const double real = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || text.front() == '+' || text.front() == '.') return nil;
    rest.remove_prefix(length);
    if (isReal) return makeReal(real);
    return makeInteger(std::strtol(text.c_str(), nullptr, 10));
  }

  std::string_view rest;
};

}  // namespace

}  // namespace tinmac

using namespace tinmac;

@implementation NSJSONSerialization
+ (id)JSONObjectWithData:(NSData*)data
                 options:(NSJSONReadingOptions)options
                   error:(NSError**)error {
  expectNumber<NSUInteger>(options, 0, "JSONObjectWithData:options:error:");
  if (data == nil) raise("NSInvalidArgumentException", "data parameter is nil");
  const std::span<const std::uint8_t> bytes = bytesOf(data);
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  const id read = JsonReader(text).container();
  if (read == nil && error != nullptr) {
    *error = autoreleased(makeError(utf8(NSCocoaErrorDomain), NSPropertyListReadCorruptError, nil));
  }
  return [read autorelease];
}
@end
