#include "VirtualMac/Scenarios/Phrase.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Deeds.h"
#include "VirtualMac/Machine/Nearest.h"

namespace virtualmac {

namespace {

constexpr double dayHours = 24, hourSeconds = 3600, minuteSeconds = 60;

bool isDigit(char character) { return character >= '0' && character <= '9'; }

/// `hh:mm`, `hh:mm:ss` or `hh:mm:ss.fff` in seconds, each part of two digits but the last.
std::optional<double> clockFrom(std::string_view text) {
  double fraction = 0;
  if (const std::size_t point = text.find('.'); point == 8) {
    const std::optional<double> part = numberFrom("0" + std::string(text.substr(point)));
    if (!part) return std::nullopt;
    fraction = *part;
    text = text.substr(0, point);
  }
  if (text.size() != 5 && text.size() != 8) return std::nullopt;
  std::array<int, 3> parts{};
  for (std::size_t at = 0, part = 0; at < text.size(); at += 3, ++part) {
    if (!isDigit(text[at]) || !isDigit(text[at + 1])) return std::nullopt;
    if (at + 2 < text.size() && text[at + 2] != ':') return std::nullopt;
    parts[part] = (text[at] - '0') * 10 + (text[at + 1] - '0');
  }
  if (parts[0] >= dayHours || parts[1] >= 60 || parts[2] >= 60) return std::nullopt;
  return parts[0] * hourSeconds + parts[1] * minuteSeconds + parts[2] + fraction;
}

}  // namespace

Phrase::Phrase(std::string_view source) {
  bool inside = false;   // a quotation
  bool started = false;  // a word
  Word word;
  for (std::size_t at = 0; at < source.size(); ++at) {
    const char character = source[at];
    if (!inside && (character == ' ' || character == '\n')) {
      if (started) words.push_back(std::exchange(word, {}));
      started = false;
    } else if (character == '"') {
      inside = !inside;
      word.quoted = word.quoted || !started;
      started = true;
    } else {
      if (inside && character == '\\' && at + 1 < source.size()) ++at;
      word.text += source[at];
      started = true;
    }
  }
  if (started) words.push_back(std::move(word));
  if (inside) complain("a quotation that does not end");
}

std::string_view Phrase::peek() const { return atEnd() ? std::string_view() : words[next].text; }

std::string Phrase::take(std::string_view what) {
  if (atEnd()) {
    complain(fmt::format("{} is missing", what));
    return {};
  }
  return words[next++].text;
}

bool Phrase::takeIf(std::string_view word) {
  if (atEnd() || words[next].quoted || words[next].text != word) return false;
  ++next;
  return true;
}

std::size_t Phrase::takeOneOf(std::string_view what,
                              std::initializer_list<std::string_view> choices) {
  const std::string word = take(what);
  const auto* const found = std::find(choices.begin(), choices.end(), word);
  if (found == choices.end()) {
    complain(unknownWord(what, word, choices));
    return 0;
  }
  return static_cast<std::size_t>(found - choices.begin());
}

double Phrase::takeNumber(std::string_view what, double least, double most) {
  return valueOf(AllowedValues{{}, least, most}.read(what, take(what))).number;
}

std::vector<std::string> Phrase::takeRest() {
  std::vector<std::string> rest;
  while (!atEnd()) rest.push_back(words[next++].text);
  return rest;
}

void Phrase::takeEnd() {
  if (!atEnd()) complain(fmt::format("nothing belongs here after it: \"{}\"", words[next].text));
}

void Phrase::complain(std::string text) {
  if (!first) first = std::move(text);
}

std::string tooLongText() {
  return fmt::format("later or longer than {:.0f} days, which is a century",
                     bounds::longestSeconds / (dayHours * hourSeconds));
}

std::expected<double, std::string> momentFrom(std::string_view text) {
  std::string_view rest = text;
  double days = 0;
  const std::size_t space = rest.find(' ');
  if (space != std::string_view::npos && space >= 2 && rest[space - 1] == 'd') {
    const std::optional<double> number = numberFrom(rest.substr(0, space - 1));
    days = number.value_or(-1);
    rest.remove_prefix(space + 1);
  }
  const std::optional<double> clock = clockFrom(rest);
  if (!clock || days < 0 || days != std::floor(days)) {
    return std::unexpected(fmt::format(
        "\"{}\" is not a moment; moments look like 00:42, 00:42:10, 00:42:10.5 or 1d 02:00:05",
        text));
  }
  const double seconds = days * dayHours * hourSeconds + *clock;
  if (seconds > bounds::longestSeconds) {
    return std::unexpected(fmt::format("\"{}\" is {}", text, tooLongText()));
  }
  return seconds;
}

std::expected<double, std::string> durationFrom(std::string_view text) {
  double seconds = 0;
  std::string_view rest = text;
  bool good = !rest.empty();
  while (good && !rest.empty()) {
    const std::size_t end = rest.find_first_not_of("0123456789.");
    const std::optional<double> number = numberFrom(rest.substr(0, end));
    const char unit = end == std::string_view::npos ? '\0' : rest[end];
    const double factor = unit == 's'   ? 1
                          : unit == 'm' ? minuteSeconds
                          : unit == 'h' ? hourSeconds
                          : unit == 'd' ? dayHours * hourSeconds
                                        : 0;
    good = number && factor > 0;
    if (!good) break;
    seconds += *number * factor;
    rest.remove_prefix(end + 1);
  }
  if (!good) {
    return std::unexpected(fmt::format(
        "\"{}\" is not a length of time; these look like 5s, 0.5s, 90m, 1h30m or 2d", text));
  }
  if (seconds > bounds::longestSeconds) {
    return std::unexpected(fmt::format("\"{}\" is {}", text, tooLongText()));
  }
  return seconds;
}

std::optional<double> numberFrom(std::string_view text) {
  const bool plain = !text.empty() && isDigit(text.front()) && isDigit(text.back()) &&
                     text.find_first_not_of("0123456789.") == std::string_view::npos &&
                     std::ranges::count(text, '.') <= 1;
  if (!plain) return std::nullopt;
  return std::strtod(std::string(text).c_str(), nullptr);
}

}  // namespace virtualmac
