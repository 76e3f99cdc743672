#include "VirtualMac/Timeline/TimelineText.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Timeline/Timeline.h"

namespace virtualmac {

std::string escapedXML(std::string_view text) {
  std::string result;
  for (const char character : text) {
    const std::string_view escape = character == '&'   ? "&amp;"
                                    : character == '<' ? "&lt;"
                                    : character == '>' ? "&gt;"
                                    : character == '"' ? "&quot;"
                                                       : "";
    // XML has no place for control characters, not even escaped.
    const char plain = static_cast<unsigned char>(character) < 0x20 ? ' ' : character;
    result += escape.empty() ? std::string_view(&plain, 1) : escape;
  }
  return result;
}

std::string shortened(std::string text, std::size_t bytes) {
  if (text.size() <= bytes) return text;
  std::size_t end = bytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
  return text.substr(0, end) + "…";
}

double textWidth(std::string_view text, double size) {
  return static_cast<double>(text.size()) * size * 0.52;
}

std::string timelineMoment(double seconds) {
  return fmt::format("{}, {} s", timelineClock(seconds), journalTime(seconds));
}

double tickSeconds(double duration) {
  static constexpr std::array<double, 22> round{
      1,    2,    5,    10,    15,    30,    60,    120,    300,    600,     900,
      1800, 3600, 7200, 10800, 21600, 43200, 86400, 172800, 604800, 1209600, 2592000};
  constexpr double most = 10;
  for (const double step : round) {
    if (duration / step <= most) return step;
  }
  return std::ceil(duration / most / round.back()) * round.back();
}

std::string tickLabel(double seconds, double step) {
  const std::string clock = timelineClock(seconds);
  if (step >= 86400) return fmt::format("{}d", static_cast<long long>(seconds / 86400));
  return step >= 60 ? clock.substr(0, clock.size() - 3) : clock;
}

}  // namespace virtualmac
