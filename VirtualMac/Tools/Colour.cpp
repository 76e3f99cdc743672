#include "VirtualMac/Tools/Colour.h"

#include <fmt/color.h>
#include <unistd.h>

#include <cstdlib>

namespace virtualmac {

namespace {

std::string_view variable(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* text = std::getenv(name);
  return text == nullptr ? std::string_view() : std::string_view(text);
}

bool showsColours(std::FILE* stream) {
  return variable("NO_COLOR").empty() && variable("TERM") != "dumb" &&
         ::isatty(::fileno(stream)) == 1;
}

fmt::text_style styleOf(Tone tone) {
  switch (tone) {
    case Tone::Warning:
      return fg(fmt::terminal_color::yellow);
    case Tone::Error:
      return fg(fmt::terminal_color::red);
    case Tone::Fault:
      return fmt::emphasis::bold | fg(fmt::terminal_color::red);
    case Tone::Plain:
      break;
  }
  return {};
}

}  // namespace

std::string toned(Tone tone, std::string_view text, std::FILE* stream) {
  if (tone == Tone::Plain || !showsColours(stream)) return std::string(text);
  return fmt::format(styleOf(tone), "{}", text);
}

}  // namespace virtualmac
