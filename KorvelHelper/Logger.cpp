#include "Logger.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace korvel {

namespace {

/// Room for text: on the stack as long as the text is short, on the heap after that.
class Room {
 public:
  static constexpr std::size_t usual = 512;

  char* of(std::size_t size) {
    if (size <= usual) return small.data();
    large.resize(size);
    return large.data();
  }

 private:
  std::array<char, usual> small;
  std::string large;
};

/// Copies a format without its annotations: "%{public}s" becomes "%s", as the C library knows it.
void copyPlain(const char* format, char* plain) {
  for (; *format != '\0'; ++format) {
    *plain++ = *format;
    if (*format != '%') continue;
    if (format[1] == '%') {
      *plain++ = *++format;
    } else if (format[1] == '{') {
      while (*format != '}' && format[1] != '\0') ++format;
    }
  }
  *plain = '\0';
}

/// The rendered text, in `room`. A text that the C library cannot render is its format.
std::string_view render(Room& room, const char* format, std::va_list arguments) {
  Room plainRoom;
  char* plain = plainRoom.of(std::strlen(format) + 1);
  copyPlain(format, plain);
  std::va_list again;
  va_copy(again, arguments);
  char* text = room.of(Room::usual);
  const int length = std::vsnprintf(text, Room::usual, plain, arguments);
  const auto size = static_cast<std::size_t>(length < 0 ? 0 : length);
  if (size >= Room::usual) {
    text = room.of(size + 1);
    std::vsnprintf(text, size + 1, plain, again);
  }
  va_end(again);
  return length < 0 ? std::string_view(format) : std::string_view(text, size);
}

}  // namespace

std::string logText(const char* format, ...) {
  Room room;
  std::va_list arguments;
  va_start(arguments, format);
  std::string text(render(room, format, arguments));
  va_end(arguments);
  return text;
}

void Logger::emit(LogLevel level, const char* format, std::va_list arguments) const {
  Room room;
  sink->emit(KorvelHelperBundleIdentifier, category, level, render(room, format, arguments));
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
