#include "VirtualMac/Tools/RunReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "VirtualMac/Timeline/Timeline.h"
#include "VirtualMac/Timeline/TimelineText.h"
#include "VirtualMac/Tools/Colour.h"

namespace virtualmac {

namespace {

std::size_t count(const std::vector<PlayedStory>& stories, Fate fate) {
  return static_cast<std::size_t>(std::ranges::count(stories, fate, &PlayedStory::fate));
}

double sum(const std::vector<PlayedStory>& stories, double PlayedStory::* seconds) {
  double all = 0;
  for (const PlayedStory& each : stories) all += each.*seconds;
  return all;
}

/// A text of several lines. The journal may hold bytes that are no text.
std::string text(const std::string& words) {
  using nlohmann::json;
  const std::string bytes = json(words).dump(-1, ' ', false, json::error_handler_t::replace);
  std::string all;
  for (std::istringstream lines(json::parse(bytes).get<std::string>()); lines;) {
    std::string line;
    if (std::getline(lines, line)) all += (all.empty() ? "" : "\n") + escapedXML(line);
  }
  return all;
}

std::string outcome(const PlayedStory& story) {
  const auto element = [&](std::string_view name, std::string_view type) {
    return fmt::format("      <{0} type=\"{1}\" message=\"{2}\">{3}</{0}>\n", name, type,
                       text(story.trouble), text(story.report));
  };
  if (story.fate == Fate::Failed) return element("failure", "expectation");
  if (story.fate == Fate::Unreadable) return element("error", "unreadable");
  if (story.fate == Fate::Stopped) return element("error", "stopped");
  if (story.fate == Fate::NotPlayed) return "      <skipped message=\"not played\"/>\n";
  return {};
}

std::string testCase(const PlayedStory& story) {
  const std::filesystem::path path(story.file);
  return fmt::format(
      "    <testcase name=\"{}\" classname=\"{}\" file=\"{}\" time=\"{:.3f}\">\n"
      "      <properties>\n"
      "        <property name=\"virtual-seconds\" value=\"{:.3f}\"/>\n"
      "      </properties>\n{}"
      "    </testcase>\n",
      text(story.name.empty() ? path.filename().string() : story.name), text(path.stem().string()),
      text(story.file), story.realSeconds, story.virtualSeconds, outcome(story));
}

}  // namespace

std::string totalLine(const std::vector<PlayedStory>& stories) {
  static constexpr std::array<std::string_view, 5> words{"passed", "failed", "unreadable",
                                                         "stopped", "not played"};
  std::string fates;
  for (std::size_t fate = 0; fate < words.size(); ++fate) {
    const std::size_t number = count(stories, static_cast<Fate>(fate));
    if (number == 0) continue;
    const bool isGood = fate == static_cast<std::size_t>(Fate::Passed);
    fates += (fates.empty() ? "" : ", ") + toned(isGood ? Tone::Plain : Tone::Error,
                                                 fmt::format("{} {}", number, words[fate]), stdout);
  }
  return fmt::format("{} scenarios: {}; {} of virtual time in {:.1f} s", stories.size(), fates,
                     timelineClock(sum(stories, &PlayedStory::virtualSeconds)),
                     sum(stories, &PlayedStory::realSeconds));
}

std::string junitXML(const std::vector<PlayedStory>& stories, std::string_view suite) {
  const std::string counts =
      fmt::format("tests=\"{}\" failures=\"{}\" errors=\"{}\" skipped=\"{}\" time=\"{:.3f}\"",
                  stories.size(), count(stories, Fate::Failed),
                  count(stories, Fate::Unreadable) + count(stories, Fate::Stopped),
                  count(stories, Fate::NotPlayed), sum(stories, &PlayedStory::realSeconds));
  std::string xml = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"virtual-mac run\" {0}>\n"
      "  <testsuite name=\"{1}\" {0}>\n",
      counts, text(std::string(suite)));
  for (const PlayedStory& each : stories) xml += testCase(each);
  return xml + "  </testsuite>\n</testsuites>\n";
}

}  // namespace virtualmac
