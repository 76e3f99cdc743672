#include "VirtualMac/Tools/Explain.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <tuple>

#include "VirtualMac/Tools/LogLine.h"

namespace virtualmac {

namespace {

using Values = std::vector<LogPattern::Value>;

constexpr std::size_t longestLine = 16384;  ///< A Mac's log keeps about a thousand bytes.
constexpr int deepestText = 4;
constexpr std::size_t mostNearest = 3;
constexpr double leastLikeness = 0.25;

struct Found {
  const LogMessage* message = nullptr;
  Values values;
};

/// The message that fits; where several do, the one of the line's category and level with the most
/// fixed text.
Found messageOf(const PrintedLogLine& line) {
  Found best;
  std::tuple<bool, bool, std::size_t> bestRank;
  for (const LogMessage& each : logTable().messages) {
    const std::tuple rank(each.category == line.category, each.level == line.level,
                          each.pattern.fixedBytes());
    if (best.message != nullptr && rank <= bestRank) continue;
    auto values = each.pattern.match(line.text, line.wasCut);
    if (!values) continue;
    best = {&each, *std::move(values)};
    bestRank = rank;
  }
  return best;
}

Found textOf(const std::string& text) {
  Found best;
  for (const LogMessage& each : logTable().texts) {
    if (best.message != nullptr && each.pattern.fixedBytes() <= best.message->pattern.fixedBytes())
      continue;
    if (auto values = each.pattern.match(text)) best = {&each, *std::move(values)};
  }
  return best;
}

void addCode(std::vector<ExplainedPart>& parts, const LogPattern::Value& value) {
  const LogCodes* codes = logTable().codesOf(value);
  if (codes == nullptr) return;
  const LogCode* code = codes->find(value.text);
  if (code == nullptr) {
    parts.push_back({value.text, codes->title, "", "This number is none that was foreseen.",
                     "Report it with the whole line."});
    return;
  }
  parts.push_back({value.text, codes->title, code->name, code->meaning, code->remedy});
}

void addParts(std::vector<ExplainedPart>& parts, const Values& values, int depth = 0) {
  for (const LogPattern::Value& value : values) {
    addCode(parts, value);
    if (value.isNumber || depth == deepestText) continue;
    const Found found = textOf(value.text);
    if (found.message == nullptr) continue;
    parts.push_back({value.text, "", "", found.message->meaning, found.message->remedy});
    addParts(parts, found.values, depth + 1);
  }
}

std::set<std::string_view> triples(std::string_view text) {
  std::set<std::string_view> found;
  for (std::size_t at = 0; at + 3 <= text.size(); ++at) found.insert(text.substr(at, 3));
  return found;
}

/// The share of letters in threes that both texts have: 1 for equal ones.
double likeness(std::string_view left, std::string_view right) {
  const auto first = triples(left);
  const auto second = triples(right);
  if (first.empty() || second.empty()) return 0;
  const auto both = std::ranges::count_if(first, [&](auto each) { return second.contains(each); });
  return 2 * static_cast<double>(both) / static_cast<double>(first.size() + second.size());
}

std::string nearestTo(const std::string& text) {
  std::vector<std::pair<double, const LogMessage*>> ranked;
  for (const LogMessage& each : logTable().messages) {
    const double like = likeness(text, each.pattern.plain());
    if (like >= leastLikeness) ranked.emplace_back(-like, &each);
  }
  std::ranges::sort(ranked, {}, &std::pair<double, const LogMessage*>::first);
  ranked.resize(std::min(ranked.size(), mostNearest));
  if (ranked.empty()) return "; no message is near to it (docs/log-messages.md has all)";
  std::string names;
  for (const auto& [like, message] : ranked)
    names += fmt::format("{}\"{}\" ({})", names.empty() ? "" : ", ", message->pattern.plain(),
                         message->category);
  return "; the nearest: " + names;
}

std::string shortened(std::string_view text) {
  constexpr std::size_t shown = 200;
  return std::string(text.substr(0, shown)) + (text.size() > shown ? "…" : "");
}

}  // namespace

std::expected<Explanation, std::string> explain(std::string_view line) {
  if (line.size() > longestLine) {
    return std::unexpected(fmt::format(
        "a line of {} bytes is none of the log's; at most {} are read", line.size(), longestLine));
  }
  const PrintedLogLine asked = logLineFrom(line);
  if (!asked.otherSource.empty()) {
    return std::unexpected(
        fmt::format("\"{}\" is of {}; only lines of the helper's log, kind log, "
                    "are explained (docs/virtual-mac.md has the kinds)",
                    shortened(line), asked.otherSource));
  }
  Found found = messageOf(asked);
  if (found.message == nullptr) {
    return std::unexpected("no message of the helper's log fits \"" + shortened(asked.text) + '"' +
                           nearestTo(asked.text));
  }
  Explanation made{found.message, {}};
  addParts(made.parts, found.values);
  return made;
}

std::string explanationText(const Explanation& explanation) {
  const LogMessage& message = *explanation.message;
  std::string text = fmt::format(
      "message     {}\nfrom        {}, {}\nmeaning     {}\nwhat to do  {}\n",
      message.pattern.plain(), message.category, message.level, message.meaning, message.remedy);
  for (const ExplainedPart& part : explanation.parts) {
    const std::string name = part.name.empty() ? "" : " is " + part.name;
    text += fmt::format("in it       {}{}\n", part.text,
                        part.source.empty() ? "" : fmt::format("{} ({})", name, part.source));
    text += fmt::format("            {}\n", part.meaning);
    if (!part.remedy.empty()) text += fmt::format("            {}\n", part.remedy);
  }
  return text;
}

nlohmann::ordered_json explanationJSON(const Explanation& explanation) {
  nlohmann::ordered_json parts = nlohmann::ordered_json::array();
  for (const ExplainedPart& part : explanation.parts) {
    nlohmann::ordered_json made{{"text", part.text}};
    if (!part.source.empty()) {
      made["code"] = part.source;
      made["name"] =
          part.name.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(part.name);
    }
    made["meaning"] = part.meaning;
    made["remedy"] = part.remedy;
    parts.push_back(std::move(made));
  }
  const LogMessage& message = *explanation.message;
  return {{"ok", true},
          {"category", message.category},
          {"level", message.level},
          {"message", message.format},
          {"meaning", message.meaning},
          {"remedy", message.remedy},
          {"parts", parts}};
}

}  // namespace virtualmac
