#include "VirtualMac/Timeline/Timeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace virtualmac {

namespace {

/// The number that follows `before` in `text`; none when there is none.
std::optional<int> numberAfter(std::string_view text, std::string_view before) {
  const std::size_t found = text.find(before);
  if (found == std::string_view::npos) return std::nullopt;
  text.remove_prefix(found + before.size());
  int number = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc()) return std::nullopt;
  return number;
}

std::optional<std::int64_t> wholeNumber(std::string_view digits) {
  std::int64_t number = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (failure != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

/// A journal line's time: seconds with three decimals.
std::optional<double> toSeconds(std::string_view text) {
  const std::size_t point = text.find('.');
  if (point == std::string_view::npos || text.size() - point != 4) return std::nullopt;
  const std::optional<std::int64_t> whole = wholeNumber(text.substr(0, point));
  const std::optional<std::int64_t> thousandths = wholeNumber(text.substr(point + 1));
  if (!whole || !thousandths) return std::nullopt;
  // One rounding, so that it prints with the same three decimals again.
  return static_cast<double>(*whole * 1000 + *thousandths) / 1000.0;
}

/// A level that the battery came to by itself, or was set to.
constexpr std::string_view levelStart = "battery ", setLevelStart = "battery set to ";

/// A deed that no lane shows, in words; none: the entry tells of no such deed.
std::optional<std::string> deedIn(const Journal::Entry& entry) {
  const std::string& text = entry.text;
  if (entry.kind == "power") {
    const bool byHand = text.ends_with("(by the user)") || text.ends_with("(by another program)");
    return byHand ? std::optional(text) : std::nullopt;
  }
  if (entry.kind == "proc") {
    const std::size_t helper = text.find(" to helper ");
    const bool sent = text.starts_with("signal ") && helper != std::string::npos;
    return sent ? std::optional(text.substr(0, helper) + " to helper") : std::nullopt;
  }
  static constexpr std::array<std::string_view, 4> inLanes{
      "adapter connected", "adapter disconnected", "lid closed", "lid opened"};
  const bool shown = std::ranges::find(inLanes, text) != inLanes.end() ||
                     (batteryLevelIn(entry) && !text.starts_with(setLevelStart));
  return entry.kind == "mac" && !shown ? std::optional(text) : std::nullopt;
}

/// What a person asked for, from the line with which the helper logs who asked; none: another line.
std::optional<std::string> requestIn(std::string_view text) {
  struct Request {
    std::string_view start;
    std::string_view label;
  };
  static constexpr std::array<Request, 11> requests{{
      {"setChargeLimit(", "limit "},
      {"clearChargeLimit ", "clear"},
      {"forceDischarge(1)", "discharge"},
      {"forceDischarge(0)", "stop discharge"},
      {"setClamshellKeepAwake(1)", "keep awake"},
      {"setClamshellKeepAwake(0)", "let sleep"},
      {"releaseLimitUntilFullThenRestore ", "top off"},
      {"cancelTopUp ", "cancel top-off"},
      {"resetAllSMCKeys ", "reset"},
      {"quit() received", "quit"},
      {"shutdownGracefully", "shut down"},
  }};
  for (const Request& request : requests) {
    if (!text.starts_with(request.start)) continue;
    std::string label(request.label);
    if (label.ends_with(' ')) label += fmt::format("{} %", numberAfter(text, "(").value_or(0));
    return label;
  }
  return std::nullopt;
}

}  // namespace

TimelineBuilder::TimelineBuilder(std::string title, double startTime, const TimelineState& start)
    : now(start) {
  made.title = std::move(title);
  made.samples.push_back({startTime, start});
}

void TimelineBuilder::add(const Journal::Entry& entry) {
  if (std::optional<std::string> deed = deedIn(entry)) {
    const bool lost = deed->find("power lost") != std::string::npos;
    mark(entry.time, lost ? TimelineMarkKind::Loss : TimelineMarkKind::Deed, *std::move(deed));
  }
  if (entry.kind == "mac") addHardware(entry);
  if (entry.kind == "smc") addWrite(entry.text);
  if (entry.kind == "power") addPower(entry.text);
  if (entry.kind == "disk") addDisk(entry.text);
  if (entry.kind == "proc") addProcess(entry);
  if (entry.kind == "reply") addReply(entry);
  if (entry.kind == "log") addLog(entry);
  keep(entry.time);
}

void TimelineBuilder::fail(double time, std::string text) {
  mark(time, TimelineMarkKind::Failure, std::move(text));
}

Timeline TimelineBuilder::finish(double time) const {
  Timeline result = made;
  result.end = std::max(time, result.samples.back().time);
  return result;
}

void TimelineBuilder::addHardware(const Journal::Entry& entry) {
  const std::string& text = entry.text;
  if (const std::optional<int> percent = batteryLevelIn(entry)) now.percent = *percent;
  if (text == "adapter connected") now.adapterConnected = true;
  if (text == "adapter disconnected") now.adapterConnected = false;
  if (text.find("inflow inhibit dropped") != std::string::npos) now.inflowInhibited = false;
  if (text == "lid closed") now.lidClosed = true;
  if (text == "lid opened") now.lidClosed = false;
}

void TimelineBuilder::addWrite(const std::string& text) {
  if (text.find("refused") != std::string::npos || text.find("ignored") != std::string::npos)
    return;
  const std::size_t arrow = text.find(" <- ");
  if (arrow == std::string::npos) return;
  const std::string_view key = std::string_view(text).substr(0, arrow);
  const std::string_view first = std::string_view(text).substr(arrow + 4, 2);
  if (key == "CHTE" || key == "CH0B" || key == "CH0C") now.chargingPaused = first != "00";
  if (key == "CHIE" || key == "CH0I" || key == "CH0J") now.inflowInhibited = first != "00";
}

void TimelineBuilder::addPower(const std::string& text) {
  if (text == "asleep") now.asleep = true;
  if (text.starts_with("awake")) now.asleep = false;
  const bool taken =
      text.find("refused") == std::string::npos && text.find("ignored") == std::string::npos;
  if (text.starts_with("native limit") && taken) {
    const std::optional<int> limit = numberAfter(text, "native limit ");
    now.chargingPaused = limit.has_value() && *limit < 100;
  }
}

void TimelineBuilder::addDisk(const std::string& text) {
  if (const auto limit = numberAfter(text, "chargeLimit=")) now.limitPercent = limit;
  if (const auto band = numberAfter(text, "sailingBand=")) now.bandPercent = *band;
  if (text.find("topUpActive=true") != std::string::npos) now.toppingOff = true;
  if (text.find("topUpActive=false") != std::string::npos) now.toppingOff = false;
}

void TimelineBuilder::addProcess(const Journal::Entry& entry) {
  const std::string& text = entry.text;
  if (!text.starts_with("helper ")) return;
  now.helperRunning = text.find(" started") != std::string::npos;
  if (!now.helperRunning) now.enforcing = now.toppingOff = now.clientConnected = false;
  const std::size_t afterPid = text.find(' ', text.find(' ') + 1);
  const bool killed = text.find(" killed") != std::string::npos;
  mark(entry.time, killed ? TimelineMarkKind::Loss : TimelineMarkKind::Event,
       "helper" + (afterPid == std::string::npos ? std::string() : text.substr(afterPid)));
}

void TimelineBuilder::addReply(const Journal::Entry& entry) {
  const std::size_t failed = entry.text.find(" failed ");
  if (failed == std::string::npos) return;
  const std::size_t quote = entry.text.find('"', failed);
  mark(entry.time, TimelineMarkKind::Refusal,
       entry.text.substr(0, failed) + " refused" +
           (quote == std::string::npos ? std::string() : ": " + entry.text.substr(quote)));
}

void TimelineBuilder::addLog(const Journal::Entry& entry) {
  // Category, level, then the text in quotes.
  const std::size_t open = entry.text.find('"');
  const std::size_t close = entry.text.rfind('"');
  if (open == std::string::npos || close <= open) return;
  const std::string_view head = std::string_view(entry.text).substr(0, open);
  std::string text = entry.text.substr(open + 1, close - open - 1);
  const auto says = [&text](std::string_view words) {
    return text.find(words) != std::string::npos;
  };
  if (head.starts_with("HelperImpl ")) {
    if (says("setChargeLimit(") || says("arming polling loop") || says("arming watchdog") ||
        says("restored limit") || says("restoring limit")) {
      now.enforcing = true;
    }
    if (const auto limit = numberAfter(text, "loop at limit=")) now.limitPercent = limit;
    if (text.starts_with("clearChargeLimit ") || text.starts_with("resetAllSMCKeys ") ||
        says("suspending enforcement") || says("stopped enforcement") ||
        text.starts_with("releaseLimitUntilFullThenRestore ")) {
      now.enforcing = false;
    }
    if (text.starts_with("cancelTopUp ") && now.toppingOff) now.enforcing = true;
    if (text.starts_with("client connected") || text.starts_with("client disconnected")) {
      now.clientConnected = numberAfter(text, "count=").value_or(0) > 0;
      return;
    }
    if (std::optional<std::string> request = requestIn(text)) {
      // To quit is to shut down; once is enough to say.
      const bool said = !made.marks.empty() && made.marks.back().text == "quit";
      if (said && *request == "shut down") return;
      mark(entry.time, TimelineMarkKind::Request, std::move(*request));
      return;
    }
  }
  // The decisions are the core's; what its components say of themselves matters when it is bad.
  const bool bad = head.find(" error") != std::string_view::npos ||
                   head.find(" fault") != std::string_view::npos;
  if (!bad && !head.starts_with("HelperImpl ")) return;
  mark(entry.time, bad ? TimelineMarkKind::Error : TimelineMarkKind::Log, std::move(text));
}

void TimelineBuilder::mark(double time, TimelineMarkKind kind, std::string text) {
  made.marks.push_back({time, kind, std::move(text)});
}

void TimelineBuilder::keep(double time) {
  Timeline::Sample& last = made.samples.back();
  if (last.state == now) return;
  if (time <= last.time) {
    last.state = now;
  } else {
    made.samples.push_back({time, now});
  }
}

std::optional<int> batteryLevelIn(const Journal::Entry& entry) {
  if (entry.kind != "mac") return std::nullopt;
  const std::string& text = entry.text;
  if (!text.starts_with(setLevelStart)) return numberAfter(text, levelStart);
  return static_cast<int>(
      std::floor(std::strtod(text.c_str() + setLevelStart.size(), nullptr) + 0.5));
}

std::optional<Journal::Entry> journalEntryFrom(std::string_view line) {
  const std::size_t afterTime = line.find(' ');
  if (afterTime == std::string_view::npos) return std::nullopt;
  const std::optional<double> time = toSeconds(line.substr(0, afterTime));
  if (!time) return std::nullopt;
  line.remove_prefix(afterTime + 1);
  const std::size_t afterKind = line.find(' ');
  if (afterKind == std::string_view::npos) return std::nullopt;
  Journal::Entry entry{*time, std::string(line.substr(0, afterKind)), {}};
  line.remove_prefix(std::min(line.find_first_not_of(' ', afterKind), line.size()));
  entry.text = line;
  return entry;
}

std::string timelineClock(double seconds) {
  const auto whole = static_cast<long long>(std::floor(seconds));
  const long long inDay = whole % 86400;
  const std::string clock =
      fmt::format("{:02}:{:02}:{:02}", inDay / 3600, inDay / 60 % 60, inDay % 60);
  return whole < 86400 ? clock : fmt::format("{}d {}", whole / 86400, clock);
}

}  // namespace virtualmac
