#include "VirtualMac/Schedule/LogText.h"

#include <charconv>

namespace virtualmac {

std::string_view levelName(korvel::LogLevel level) {
  switch (level) {
    case korvel::LogLevel::Default:
      return "default";
    case korvel::LogLevel::Error:
      return "error";
    case korvel::LogLevel::Fault:
      return "fault";
  }
  return "?";
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

std::optional<std::int64_t> numberAfter(std::string_view text, std::string_view word) {
  const std::size_t found = text.find(word);
  if (found == std::string_view::npos) return std::nullopt;
  const std::string_view digits = text.substr(found + word.size());
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc()) return std::nullopt;
  return number;
}

}  // namespace virtualmac
