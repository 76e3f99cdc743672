#include "Logger.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace korvel {

namespace {

/// Text under construction: on the stack as long as it is short, on the heap after that.
class LineBuffer {
 public:
  void append(std::string_view text) {
    if (large.empty() && length + text.size() <= small.size()) {
      std::memcpy(small.data() + length, text.data(), text.size());
      length += text.size();
      return;
    }
    if (large.empty()) large.assign(small.data(), length);
    large.append(text);
  }
  [[nodiscard]] std::string_view text() const {
    return large.empty() ? std::string_view(small.data(), length) : std::string_view(large);
  }

 private:
  std::array<char, 512> small;
  std::size_t length = 0;
  std::string large;
};

/// One conversion of a format, its braces taken off: "%{public}5hhu" is "%5", "hh", 'u'.
struct Conversion {
  std::string_view annotation;  ///< What stood in the braces.
  std::string_view layout;      ///< Flags, width and precision.
  std::string_view length;
  char type = '\0';

  [[nodiscard]] bool isBoolean() const { return annotation.find("bool") != std::string_view::npos; }
};

class FormatReader {
 public:
  explicit FormatReader(std::string_view format) : rest(format) {}

  /// Text up to the next conversion or the end.
  std::string_view literal() { return take(rest.find('%')); }
  [[nodiscard]] bool atEnd() const { return rest.empty(); }
  Conversion conversion() {
    Conversion found;
    rest.remove_prefix(1);
    if (rest.starts_with('{')) {
      found.annotation = take(rest.find('}'));
      if (!rest.empty()) rest.remove_prefix(1);
    }
    found.layout = take(rest.find_first_not_of("-+ #0123456789.*"));
    found.length = take(rest.find_first_not_of("hljztq"));
    if (!rest.empty()) {
      found.type = rest.front();
      rest.remove_prefix(1);
    }
    return found;
  }

 private:
  std::string_view take(std::size_t count) {
    const std::string_view taken = rest.substr(0, count);
    rest.remove_prefix(taken.size());
    return taken;
  }

  std::string_view rest;
};

/// Walks a format and its arguments side by side. Every integer is widened to 64 bits, so the
/// layout of a conversion can be handed to snprintf with one length.
class Renderer {
 public:
  Renderer(LineBuffer& buffer, std::va_list& list) : out(buffer), arguments(list) {}

  void render(const char* format) {
    FormatReader reader(format);
    for (;;) {
      out.append(reader.literal());
      if (reader.atEnd()) return;
      if (!render(reader.conversion())) return;
    }
  }

 private:
  /// False when the rest cannot be rendered: the argument's size is not known.
  bool render(const Conversion& conversion) {
    switch (conversion.type) {
      case '%':
        out.append("%");
        return true;
      case 'd':
      case 'i':
        renderSigned(conversion);
        return true;
      case 'u':
      case 'x':
      case 'X':
      case 'o':
        renderUnsigned(conversion);
        return true;
      case 'c':
        renderCharacter();
        return true;
      case 's':
        renderText(conversion);
        return true;
      case 'e':
      case 'f':
      case 'g': {
        const std::string directive = snprintfFormat(conversion, "");
        print(directive, va_arg(arguments, double));
        return true;
      }
      case 'p': {
        const std::string directive = snprintfFormat(conversion, "");
        print(directive, va_arg(arguments, void*));
        return true;
      }
      default:
        return false;
    }
  }

  void renderSigned(const Conversion& conversion) {
    if (!conversion.layout.empty()) {
      const std::string directive = snprintfFormat(conversion, "ll");
      print(directive, static_cast<long long>(signedArgument(conversion.length)));
      return;
    }
    const std::int64_t value = signedArgument(conversion.length);
    appendDecimal(conversion.isBoolean() ? std::int64_t{value != 0} : value);
  }

  void renderUnsigned(const Conversion& conversion) {
    if (conversion.layout.empty() && conversion.type == 'u') {
      appendDecimal(unsignedArgument(conversion.length));
      return;
    }
    const std::string directive = snprintfFormat(conversion, "ll");
    print(directive, static_cast<unsigned long long>(unsignedArgument(conversion.length)));
  }

  void renderCharacter() {
    const auto character = static_cast<char>(va_arg(arguments, int));
    out.append({&character, 1});
  }

  void renderText(const Conversion& conversion) {
    if (!conversion.layout.empty()) {
      const std::string directive = snprintfFormat(conversion, "");
      print(directive, va_arg(arguments, const char*));
      return;
    }
    const char* text = va_arg(arguments, const char*);
    out.append(text == nullptr ? "(null)" : text);
  }

  std::int64_t signedArgument(std::string_view length) {
    if (length == "hh") return static_cast<signed char>(va_arg(arguments, int));
    if (length == "h") return static_cast<short>(va_arg(arguments, int));
    if (length == "l") return va_arg(arguments, long);
    if (length == "ll" || length == "q") return va_arg(arguments, long long);
    if (length == "j") return va_arg(arguments, std::intmax_t);
    if (length == "z" || length == "t") return va_arg(arguments, std::ptrdiff_t);
    return va_arg(arguments, int);
  }

  std::uint64_t unsignedArgument(std::string_view length) {
    if (length == "hh") return static_cast<unsigned char>(va_arg(arguments, int));
    if (length == "h") return static_cast<unsigned short>(va_arg(arguments, int));
    if (length == "l") return va_arg(arguments, unsigned long);
    if (length == "ll" || length == "q") return va_arg(arguments, unsigned long long);
    if (length == "j") return va_arg(arguments, std::uintmax_t);
    if (length == "z" || length == "t") return va_arg(arguments, std::size_t);
    return va_arg(arguments, unsigned);
  }

  template <class Number>
  void appendDecimal(Number value) {
    std::array<char, 24> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    out.append({digits.data(), static_cast<std::size_t>(end - digits.data())});
  }

  /// The conversion for snprintf. Takes the arguments of every `*`, which precede the value's.
  std::string snprintfFormat(const Conversion& conversion, const char* length) {
    std::string directive = "%";
    for (const char sign : conversion.layout) {
      if (sign == '*') {
        directive += std::to_string(va_arg(arguments, int));
      } else {
        directive += sign;
      }
    }
    return directive.append(length).append(1, conversion.type);
  }

  template <class Value>
  void print(const std::string& directive, Value value) {
    std::array<char, 128> small{};
    const int needed = std::snprintf(small.data(), small.size(), directive.c_str(), value);
    if (needed < 0) return;
    const auto size = static_cast<std::size_t>(needed);
    if (size < small.size()) {
      out.append({small.data(), size});
      return;
    }
    std::string large(size + 1, '\0');
    std::snprintf(large.data(), large.size(), directive.c_str(), value);
    large.pop_back();
    out.append(large);
  }

  LineBuffer& out;
  std::va_list& arguments;
};

void renderLine(LineBuffer& line, const char* format, std::va_list arguments) {
  std::va_list walked;  // a parameter of this type is not an object that can be referred to
  va_copy(walked, arguments);
  Renderer(line, walked).render(format);
  va_end(walked);
}

}  // namespace

std::string renderLogText(const char* format, std::va_list arguments) {
  LineBuffer line;
  renderLine(line, format, arguments);
  return std::string(line.text());
}

void Logger::emit(LogLevel level, const char* format, std::va_list arguments) const {
  LineBuffer line;
  renderLine(line, format, arguments);
  sink->emit(KorvelHelperBundleIdentifier, category, level, line.text());
}

void Logger::log(const char* format, ...) const {
  std::va_list arguments;
  va_start(arguments, format);
  emit(LogLevel::Default, format, arguments);
  va_end(arguments);
}

void Logger::error(const char* format, ...) const {
  std::va_list arguments;
  va_start(arguments, format);
  emit(LogLevel::Error, format, arguments);
  va_end(arguments);
}

void Logger::fault(const char* format, ...) const {
  std::va_list arguments;
  va_start(arguments, format);
  emit(LogLevel::Fault, format, arguments);
  va_end(arguments);
}

}  // namespace korvel
