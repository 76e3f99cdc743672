// Texts from formats, and what an object says of itself in one.

#include <cstdarg>
#include <cstdio>
#include <string>

#import "TinMac/Frameworks/Objects.h"

namespace tinmac {

namespace {

/// One conversion of a format, such as %-18s.
struct Conversion {
  std::string text;
  std::size_t longs = 0;  ///< How many letters l it has.
  char letter = 0;
  bool isPlain = true;  ///< Nothing stands between the mark and the letter.
};

/// Reads the conversion whose mark is at `begin`.
Conversion conversionAt(std::string_view format, std::size_t begin) {
  const std::size_t lengths = format.find_first_not_of("0123456789.-+ #", begin + 1);
  const std::size_t letter =
      lengths == std::string_view::npos ? lengths : format.find_first_not_of('l', lengths);
  if (letter == std::string_view::npos) trap("a format that is not built", format);
  return {.text = std::string(format.substr(begin, letter + 1 - begin)),
          .longs = letter - lengths,
          .letter = format[letter],
          .isPlain = lengths == begin + 1};
}

template <class Value>
std::string printed(const Conversion& conversion, Value value) {
  const int length = std::snprintf(nullptr, 0, conversion.text.c_str(), value);
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  std::snprintf(text.data(), text.size(), conversion.text.c_str(), value);
  text.pop_back();
  return text;
}

std::string described(id object) {
  return object == nil ? "(null)" : std::string(utf8([object description]));
}

/// The arguments of a call, which move on as they are read.
struct Arguments {
  va_list list;
};

/// An int, or a long; that has 64 bits, as a long long has.
std::string integer(const Conversion& conversion, Arguments& arguments) {
  if (conversion.longs == 0) return printed(conversion, va_arg(arguments.list, int));
  return printed(conversion, va_arg(arguments.list, long));
}

std::string converted(const Conversion& conversion, Arguments& arguments) {
  switch (conversion.letter) {
    case '%':
      return "%";
    case '@':
      if (conversion.isPlain) return described(va_arg(arguments.list, id));
      break;
    case 's':
      if (conversion.longs == 0) return printed(conversion, va_arg(arguments.list, const char*));
      break;
    case 'd':
    case 'i':
    case 'u':
    case 'x':
      if (conversion.longs <= 2) return integer(conversion, arguments);
      break;
    default:
      break;
  }
  trap("a format that is not built", conversion.text);
}

std::string formatted(std::string_view format, Arguments& arguments) {
  std::string text;
  for (std::size_t place = 0; place < format.size();) {
    const std::size_t mark = std::min(format.find('%', place), format.size());
    text += format.substr(place, mark - place);
    place = mark;
    if (mark == format.size()) break;
    const Conversion conversion = conversionAt(format, mark);
    text += converted(conversion, arguments);
    place += conversion.text.size();
  }
  return text;
}

}  // namespace

}  // namespace tinmac

using namespace tinmac;

@implementation NSString (Formats)
+ (instancetype)stringWithFormat:(NSString*)format, ... {
  Arguments arguments;
  va_start(arguments.list, format);
  const std::string text = formatted(utf8(format), arguments);
  va_end(arguments.list);
  return autoreleased(makeString(text));
}
@end

@implementation NSNumber (Descriptions)
- (NSString*)description {
  char text[40];
  if (!isBoolean(self) && CFNumberIsFloatType((CFNumberRef)self) != 0) {
    std::snprintf(text, sizeof text, "%0.16g", [self doubleValue]);
  } else {
    std::snprintf(text, sizeof text, "%lld", [self longLongValue]);
  }
  return autoreleased(makeString(text));
}
@end

@implementation NSNull (Descriptions)
- (NSString*)description {
  return autoreleased(makeString("<null>"));
}
@end
