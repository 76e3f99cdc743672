#include "VirtualMac/Timeline/Timeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "VirtualMac/Schedule/LogText.h"

namespace virtualmac {

namespace {

/// A deed that no lane shows, in words; none: the entry tells of no such deed.
std::optional<std::string> deedIn(const Journal::Entry& entry) {
  switch (entry.effect.id) {
    case EffectID::nativeLimitByUser:
    case EffectID::settingByOther:
    case EffectID::settingRemovedByOther:
      return entry.text;
    case EffectID::signalSent:
      return "signal " + entry.effect.word(0) + " to helper";
    case EffectID::adapterConnected:
    case EffectID::adapterDisconnected:
    case EffectID::lidClosed:
    case EffectID::lidOpened:
    case EffectID::batteryLevel:
      return std::nullopt;
    default:
      return entry.kind == "mac" ? std::optional(entry.text) : std::nullopt;
  }
}

/// An effect that switches one thing of the machine.
struct Switching {
  EffectID id;
  bool TimelineState::* field;
  bool on;
};
constexpr std::array<Switching, 7> switchings{{
    {EffectID::adapterConnected, &TimelineState::adapterConnected, true},
    {EffectID::adapterDisconnected, &TimelineState::adapterConnected, false},
    {EffectID::inflowInhibitDropped, &TimelineState::inflowInhibited, false},
    {EffectID::lidClosed, &TimelineState::lidClosed, true},
    {EffectID::lidOpened, &TimelineState::lidClosed, false},
    {EffectID::fellAsleep, &TimelineState::asleep, true},
    {EffectID::woke, &TimelineState::asleep, false},
}};

/// A person's request, from the line with which the helper logs who asked; none: another line.
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
    const bool lost = entry.tells(EffectID::powerLost) || entry.tells(EffectID::batteryRanOut);
    mark(entry.time, lost ? TimelineMarkKind::Loss : TimelineMarkKind::Deed, *std::move(deed));
  }
  addHardware(entry);
  addDisk(entry.effect);
  if (entry.kind == "proc") addProcess(entry);
  if (entry.kind == "reply") addReply(entry);
  if (entry.tells(EffectID::logged)) addLog(entry);
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
  if (const std::optional<int> percent = batteryLevelIn(entry)) now.percent = *percent;
  for (const Switching& each : switchings) {
    if (entry.tells(each.id)) now.*each.field = each.on;
  }
  if (entry.tells(EffectID::nativeLimitByUser) || entry.tells(EffectID::nativeLimitSet)) {
    now.chargingPaused = numberAfter(entry.effect.word(0), "").value_or(100) < 100;
  }
  if (entry.tells(EffectID::keyWritten)) addWrite(entry.effect.word(0), entry.effect.word(1));
}

void TimelineBuilder::addWrite(std::string_view key, std::string_view payload) {
  const bool isSet = !payload.starts_with("00");
  if (key == "CHTE" || key == "CH0B" || key == "CH0C") now.chargingPaused = isSet;
  if (key == "CHIE" || key == "CH0I" || key == "CH0J") now.inflowInhibited = isSet;
}

void TimelineBuilder::addDisk(const Effect& effect) {
  const auto number = [&effect](std::string_view field) {
    return numberAfter(effect.field(field).value_or(""), "");
  };
  if (const auto limit = number("chargeLimit")) now.limitPercent = static_cast<int>(*limit);
  if (const auto band = number("sailingBand")) now.bandPercent = static_cast<int>(*band);
  if (const auto topUp = effect.field("topUpActive")) now.toppingOff = topUp == "true";
}

void TimelineBuilder::addProcess(const Journal::Entry& entry) {
  if (entry.tells(EffectID::told) || entry.tells(EffectID::signalSent)) return;
  now.helperRunning = entry.tells(EffectID::helperStarted);
  if (!now.helperRunning) now.enforcing = now.toppingOff = now.clientConnected = false;
  // The text without the pid.
  std::string text = entry.text;
  text.erase(std::string_view("helper").size(), 1 + entry.effect.word(0).size());
  const bool killed = entry.tells(EffectID::helperKilled);
  mark(entry.time, killed ? TimelineMarkKind::Loss : TimelineMarkKind::Event, std::move(text));
}

void TimelineBuilder::addReply(const Journal::Entry& entry) {
  if (entry.tells(EffectID::replyFailed)) {
    mark(entry.time, TimelineMarkKind::Refusal,
         fmt::format("{} refused: \"{}\"", entry.effect.word(0), entry.effect.word(2)));
  } else if (entry.tells(EffectID::replyFailedSilently)) {
    mark(entry.time, TimelineMarkKind::Refusal, entry.effect.word(0) + " refused");
  }
}

void TimelineBuilder::addLog(const Journal::Entry& entry) {
  std::string text(entry.message());
  const auto says = [&text](std::string_view words) { return contains(text, words); };
  const bool ofCore = entry.effect.word(0) == "HelperImpl";
  if (ofCore) {
    if (says("setChargeLimit(") || says("arming polling loop") || says("arming watchdog") ||
        says("restored limit") || says("restoring limit")) {
      now.enforcing = true;
    }
    if (const auto limit = numberAfter(text, "loop at limit=")) {
      now.limitPercent = static_cast<int>(*limit);
    }
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
      // "quit" says it already: to quit is to shut down.
      const bool said = !made.marks.empty() && made.marks.back().text == "quit";
      if (said && *request == "shut down") return;
      mark(entry.time, TimelineMarkKind::Request, std::move(*request));
      return;
    }
  }
  // The decisions are the core's; what its components say of themselves matters when it is bad.
  const bool bad = entry.effect.word(1) != levelName(korvel::LogLevel::Default);
  if (!bad && !ofCore) return;
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
  if (entry.tells(EffectID::batteryLevel)) return static_cast<int>(entry.effect.number(0));
  if (!entry.tells(EffectID::batterySet)) return std::nullopt;
  return static_cast<int>(std::floor(std::strtod(entry.effect.word(0).c_str(), nullptr) + 0.5));
}

std::string timelineClock(double seconds) {
  const auto whole = static_cast<long long>(std::floor(seconds));
  const long long inDay = whole % 86400;
  const std::string clock =
      fmt::format("{:02}:{:02}:{:02}", inDay / 3600, inDay / 60 % 60, inDay % 60);
  return whole < 86400 ? clock : fmt::format("{}d {}", whole / 86400, clock);
}

}  // namespace virtualmac
