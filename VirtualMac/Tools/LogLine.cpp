#include "VirtualMac/Tools/LogLine.h"

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Tools/LogTable.h"

namespace virtualmac {

namespace {

using nlohmann::json;

constexpr std::string_view blanks = " \t\r\n";
constexpr std::string_view subsystemMark = "[com.korvel.app.helper:";
constexpr std::string_view cutMark = "<…>";

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && blanks.contains(text.front())) text.remove_prefix(1);
  while (!text.empty() && blanks.contains(text.back())) text.remove_suffix(1);
  return text;
}

const std::set<std::string, std::less<>>& categories() {
  static const std::set<std::string, std::less<>> all = [] {
    std::set<std::string, std::less<>> names;
    for (const LogMessage& each : logTable().messages) names.insert(each.category);
    return names;
  }();
  return all;
}

/// The level that a word of a Mac's log stands for; empty: none.
std::string_view levelOf(std::string_view word) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 6> words{
      {{"Default", "default"},
       {"Df", "default"},
       {"Error", "error"},
       {"E", "error"},
       {"Fault", "fault"},
       {"F", "fault"}}};
  for (const auto& [shown, level] : words) {
    if (word == shown) return level;
  }
  return {};
}

/// The last level named in what a Mac prints before the category.
std::string_view levelIn(std::string_view head) {
  constexpr std::string_view separators = " \t<>:";
  std::string_view level;
  while (!head.empty()) {
    const std::size_t end = std::min(head.find_first_of(separators), head.size());
    if (const auto found = levelOf(head.substr(0, end)); !found.empty()) level = found;
    head.remove_prefix(std::min(end + 1, head.size()));
  }
  return level;
}

/// `… KorvelHelper: [com.korvel.app.helper:SMCWriter] text`
std::optional<PrintedLogLine> ofMac(std::string_view line) {
  const std::size_t mark = line.find(subsystemMark);
  if (mark == std::string_view::npos) return std::nullopt;
  std::string_view rest = line.substr(mark + subsystemMark.size());
  const std::size_t end = rest.find(']');
  if (end == std::string_view::npos) return std::nullopt;
  return PrintedLogLine{std::string(rest.substr(0, end)),
                        std::string(levelIn(line.substr(0, mark))),
                        std::string(trimmed(rest.substr(end + 1)))};
}

/// `… SMCWriter fault "text"`
std::optional<PrintedLogLine> ofJournal(std::string_view line) {
  if (!line.ends_with('"')) return std::nullopt;
  for (const std::string& category : categories()) {
    for (const std::string_view level : {"default", "error", "fault"}) {
      const std::string head = category + ' ' + std::string(level) + " \"";
      const std::size_t found = line.find(head);
      if (found == std::string_view::npos || (found > 0 && line[found - 1] != ' ')) continue;
      line.remove_prefix(found + head.size());
      line.remove_suffix(1);
      return PrintedLogLine{category, std::string(level), std::string(line)};
    }
  }
  return std::nullopt;
}

std::optional<PrintedLogLine> ofJSON(std::string_view line) {
  if (!line.starts_with('{')) return std::nullopt;
  const json object = json::parse(line, nullptr, false);
  if (!object.is_object()) return std::nullopt;
  const auto text = [&](const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
  };
  if (object.contains("eventMessage"))
    return PrintedLogLine{text("category"), std::string(levelOf(text("messageType"))),
                          text("eventMessage")};
  if (!object.contains("kind")) return std::nullopt;
  if (text("kind") != "log")
    return PrintedLogLine{.otherSource = "the journal's kind " + text("kind")};
  return ofJournal(text("text"));
}

/// `SMCWriter: text`, as the helper prints it on its standard error.
PrintedLogLine ofText(std::string_view line) {
  const std::size_t colon = line.find(": ");
  if (colon != std::string_view::npos && categories().contains(line.substr(0, colon)))
    return {.category = std::string(line.substr(0, colon)),
            .text = std::string(line.substr(colon + 2))};
  const auto entry = journalEntryFrom(line);
  if (entry && entry->kind != "log")
    return {.text = std::string(line), .otherSource = "the journal's kind " + entry->kind};
  return {.text = std::string(line)};
}

}  // namespace

PrintedLogLine logLineFrom(std::string_view line) {
  line = trimmed(line);
  std::optional<PrintedLogLine> found = ofJSON(line);
  if (!found) found = ofMac(line);
  if (!found) found = ofJournal(line);
  PrintedLogLine made = found ? *std::move(found) : ofText(line);
  if (made.text.ends_with(cutMark)) {
    made.text.resize(made.text.size() - cutMark.size());
    made.wasCut = true;
  }
  return made;
}

}  // namespace virtualmac
