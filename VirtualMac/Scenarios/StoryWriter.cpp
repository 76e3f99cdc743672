#include "VirtualMac/Scenarios/StoryWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string_view>

namespace virtualmac {

namespace {

constexpr std::size_t widestList = 80;
constexpr long long dayMilliseconds = 86'400'000;

bool isControl(char character) {
  return static_cast<unsigned char>(character) < 0x20 || character == 0x7f;
}

/// A text that YAML may take for something else if it stands without quotes.
bool needsQuotes(std::string_view text) {
  static constexpr std::string_view first = "'\"!&*-?|>%@`#{}[],:= ";
  return text.empty() || first.find(text.front()) != std::string_view::npos ||
         text.find(": ") != std::string_view::npos || text.find(" #") != std::string_view::npos ||
         text.ends_with(':') || text.ends_with(' ') || text == "~" || text == "null";
}

std::string inQuotes(std::string_view text) {
  if (std::ranges::any_of(text, isControl)) {
    std::string all = "\"";
    for (const char character : text) {
      if (character == '"' || character == '\\') all += '\\';
      all += isControl(character) ? fmt::format("\\x{:02x}", static_cast<unsigned char>(character))
                                  : std::string(1, character);
    }
    return all + '"';
  }
  std::string all = "'";
  for (const char character : text) all += character == '\'' ? "''" : std::string(1, character);
  return all + "'";
}

std::string scalar(std::string_view text) {
  const bool plain = !needsQuotes(text) && std::ranges::none_of(text, isControl);
  return plain ? std::string(text) : inQuotes(text);
}

/// A text of several lines as they are, where YAML keeps them so.
std::string block(const std::string& text, std::string_view margin) {
  const auto odd = [](char character) { return character != '\n' && isControl(character); };
  const bool asItIs = !text.empty() && text.front() != ' ' && text.front() != '\n' &&
                      text.find("\n\n") == std::string::npos && std::ranges::none_of(text, odd);
  if (!asItIs) return inQuotes(text);
  std::string all = text.ends_with('\n') ? "|" : "|-";
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    all += fmt::format("\n{}{}", margin, text.substr(at, end - at));
    at = end + 1;
  }
  return all;
}

/// A key with one phrase, or a list of them: on one line, if it has room there.
std::string entry(std::string_view key, const std::vector<std::string>& phrases) {
  if (phrases.empty()) return {};
  if (phrases.size() == 1) return fmt::format("    {}: {}\n", key, scalar(phrases.front()));
  std::string line = fmt::format("    {}: [", key);
  bool isShort = true;
  for (const std::string& phrase : phrases) {
    isShort = isShort && phrase.find_first_of(",[]{}") == std::string::npos;
    line += (line.ends_with('[') ? "" : ", ") + scalar(phrase);
  }
  if (isShort && line.size() < widestList) return line + "]\n";
  line = fmt::format("    {}:\n", key);
  for (const std::string& phrase : phrases) line += fmt::format("      - {}\n", scalar(phrase));
  return line;
}

std::string startText(const std::vector<std::pair<std::string, std::string>>& start) {
  std::string all = start.empty() ? "" : "start:\n";
  for (auto each = start.begin(); each != start.end(); ++each) {
    const auto& [key, value] = *each;
    if (key == "saved-state") {
      all += fmt::format("  {}: {}\n", key, block(value, "    "));
    } else if (key != "faults") {
      all += fmt::format("  {}: {}\n", key, scalar(value));
    } else if (std::none_of(start.begin(), each,
                            [](const auto& one) { return one.first == "faults"; })) {
      all += "  faults:\n";
      for (auto fault = each; fault != start.end(); ++fault) {
        if (fault->first == "faults") all += fmt::format("    - {}\n", scalar(fault->second));
      }
    }
  }
  return all;
}

/// `.5`; nothing for a whole second.
std::string fractionText(long long milliseconds) {
  if (milliseconds == 0) return {};
  std::string text = fmt::format(".{:03}", milliseconds);
  return text.substr(0, text.find_last_not_of('0') + 1);
}

}  // namespace

std::string WrittenStory::text() const {
  // Editors find there which words are allowed; `virtual-mac schema scenario` prints it.
  std::string all = "# yaml-language-server: $schema=scenario.schema.json\n";
  all += fmt::format("name: {}\ndescription: {}\nprofile: {}\n", scalar(name), scalar(description),
                     scalar(profile));
  if (seed) all += fmt::format("seed: {}\n", *seed);
  all += startText(start) + "steps:\n";
  for (const WrittenStep& step : steps) {
    all += fmt::format("  - at: {}\n", momentText(step.time));
    all += entry("do", step.actions);
    if (!step.reply.empty()) all += entry("reply", {step.reply});
    all += entry("expect", step.expect) + entry("within", step.within) + entry("holds", step.holds);
  }
  return all + fmt::format("ends: {}\n", momentText(end));
}

std::string momentText(double seconds) {
  const long long all = std::llround(seconds * 1000);
  const long long days = all / dayMilliseconds;
  const long long rest = all % dayMilliseconds;
  std::string text = days > 0 ? fmt::format("{}d ", days) : "";
  text += fmt::format("{:02}:{:02}:{:02}", rest / 3'600'000, rest / 60'000 % 60, rest / 1000 % 60);
  return text + fractionText(rest % 1000);
}

std::string durationText(double seconds) {
  const long long all = std::llround(seconds * 1000);
  std::string text;
  const auto add = [&](long long milliseconds, char unit, long long most) {
    const long long count = most > 0 ? all / milliseconds % most : all / milliseconds;
    if (count > 0) text += fmt::format("{}{}", count, unit);
  };
  add(3'600'000, 'h', 0);
  add(60'000, 'm', 60);
  const long long rest = all % 60'000;
  if (rest % 1000 != 0) return text + fmt::format("{}{}s", rest / 1000, fractionText(rest % 1000));
  add(1000, 's', 60);
  return text.empty() ? "0s" : text;
}

}  // namespace virtualmac
