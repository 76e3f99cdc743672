#include "VirtualMac/Tools/StateText.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cmath>
#include <ctime>

#include "EnforcementDecision.h"
#include "VirtualMac/Timeline/TimelineText.h"

namespace virtualmac {

using korvel::Date;
using korvel::HelperCapabilities;
using korvel::HelperState;
using Loop = Enforcement::Loop;

namespace {

constexpr std::int64_t lowestLimit = 20;
constexpr std::int64_t noLimit = 100;

std::string localTime(Date date) {
  const auto seconds = static_cast<std::time_t>(
      std::floor(date.secondsSinceReference + korvel::unixToReferenceSeconds));
  std::tm local{};
  ::localtime_r(&seconds, &local);
  return fmt::format("{:%Y-%m-%d %H:%M:%S}", local);
}

bool neverSet(const HelperState& state) { return state.lastWriteAt == Date::distantPast(); }

constexpr std::string_view notTaken = "the last write of the gate did not take hold";

std::string outOfRange(std::int64_t limit) {
  return fmt::format("a limit of {} % is out of range", limit);
}

/// Says whether the running loop gets its limit enforced.
std::string holding(const Told& told) {
  const HelperState& state = told.state;
  const std::int64_t limit = told.enforcement.limit.value_or(state.chargeLimit);
  const std::string what =
      limit == noLimit ? "handing charging back to macOS" : fmt::format("holding {} %", limit);
  // Handing back reports no outcome: the last one is of another limit.
  if (told.enforcement.failing && !state.lastWriteVerified && limit != noLimit)
    return fmt::format("{} is tried, and fails: {}", what, told.enforcement.outcome.value_or(""));
  if (!state.lastWriteVerified) return fmt::format("{} is tried, but {}", what, notTaken);
  if (limit == noLimit) return what + ", as the limit is 100 %";
  return fmt::format(
      "charging stops at {} %, goes on below {} %, while the adapter is in and the charge can be "
      "read",
      limit, limit - korvel::effectiveBand(state.sailingBand, limit));
}

/// Says why nothing is held, and how the charging gate is left.
std::string stopped(const Told& told) {
  const HelperState& state = told.state;
  const Enforcement& now = told.enforcement;
  std::string text = fmt::format("nothing: {}", reasonText(now.loop));
  if (now.loop == Loop::OutOfRange)
    return "nothing: " + outOfRange(now.limit.value_or(state.chargeLimit));
  if (now.loop == Loop::NotArmed || now.loop == Loop::NoHelper) {
    if (state.chargeLimit < lowestLimit || state.chargeLimit > noLimit)
      return "nothing: " + outOfRange(state.chargeLimit);
    return neverSet(state) ? "nothing: no limit was ever set" : text;
  }
  // A reset reads nothing back, so only an error tells that it failed.
  if (now.stopError) return fmt::format("{}, but not all was done: {}", text, *now.stopError);
  if (now.loop == Loop::Reset) return text + ", charging is left to macOS";
  return fmt::format("{}, {}", text,
                     state.lastWriteVerified ? "charging is left to macOS" : notTaken);
}

std::string enforced(const Told& told) {
  const HelperState& state = told.state;
  const bool running = told.enforcement.loop == Loop::Running;
  if (state.forceDischargeActive) {
    return fmt::format(
        "discharging to {} %: the hardware was told to draw nothing from the adapter{}",
        told.enforcement.limit.value_or(state.chargeLimit),
        running ? "" : "; nothing watches it, as no loop runs");
  }
  if (state.topUpActive && !running) {
    return fmt::format("topping off to full, or for two hours, then back to {} %{}",
                       state.chargeLimit,
                       state.lastWriteVerified ? "" : fmt::format(", but {}", notTaken));
  }
  if (!told.capabilities.canControlCharging()) {
    return "nothing can be: the helper found neither CHTE, nor CH0B and CH0C, nor a charge limit "
           "of "
           "macOS";
  }
  if (!running) return stopped(told);
  return holding(told) + (state.topUpActive ? "; a connection armed this during a top-off" : "");
}

std::string loggedError(const Enforcement::LoggedError& error) {
  return fmt::format("{} (at {})", error.text, timelineMoment(error.time));
}

std::string chargingWay(const HelperCapabilities& capabilities) {
  if (capabilities.tahoeCharging) return "by CHTE";
  if (capabilities.preTahoeCharging) return "by CH0B and CH0C";
  if (capabilities.nativeCharging) return "by the charge limit of macOS";
  return "cannot be controlled on this Mac";
}

std::string dischargeWay(const HelperCapabilities& capabilities) {
  if (capabilities.tahoeDischarge) return "by CHIE";
  if (capabilities.preTahoeDischarge) return "by CH0I and CH0J";
  return "cannot be controlled on this Mac";
}

}  // namespace

std::string capabilitiesText(const HelperCapabilities& capabilities) {
  return fmt::format("charging       {}\ndischarge      {}\n", chargingWay(capabilities),
                     dischargeWay(capabilities));
}

std::string stateText(const Told& told) {
  const auto& [state, capabilities, now, before] = told;
  std::string text;
  // Banners come first, as a person must see them.
  if (!state.lastWriteVerified)
    text += "! The last change of the charging hardware did not take hold.\n";
  if (before && before->loop != Loop::Running && now.loop == Loop::Running && now.armedByConnection)
    text += fmt::format("! Connecting has armed the limit. Before, nothing was enforced: {}.\n",
                        reasonText(before->loop));
  if (state.lastDischargeAbortReason)
    text += fmt::format("! {}{}\n", *state.lastDischargeAbortReason,
                        state.lastDischargeAbortAt
                            ? fmt::format(" ({})", localTime(*state.lastDischargeAbortAt))
                            : "");
  if (state.sleepDisabledByKorvel) text += "! The Mac is kept awake with its lid closed.\n";
  text += fmt::format("limit          {} %\n", state.chargeLimit);
  text += fmt::format("enforced       {}\n", enforced(told));
  text += fmt::format("last outcome   {}\n", now.outcome.value_or("none"));
  if (now.lastError) text += fmt::format("last error     {}\n", loggedError(*now.lastError));
  text += capabilitiesText(capabilities);
  text +=
      fmt::format("last write     {}\n", neverSet(state) ? "never" : localTime(state.lastWriteAt));
  text += fmt::format("helper         {}\n", state.helperVersion.value_or("unknown version"));
  return text;
}

std::string stateLine(const Told& told) {
  const HelperState& state = told.state;
  const Enforcement& now = told.enforcement;
  std::string line = fmt::format("limit {} %, {}", state.chargeLimit, enforced(told));
  // The text of a failure gives its reason already, and an outcome is the running loop's only.
  const bool explained = now.failing || now.stopError;
  if (now.loop == Loop::Running && now.outcome && !now.failing)
    line += ", last outcome " + *now.outcome;
  if (!state.lastWriteVerified && now.lastError && !explained)
    line += ", last error " + loggedError(*now.lastError);
  if (state.lastDischargeAbortReason) line += ", " + *state.lastDischargeAbortReason;
  if (state.sleepDisabledByKorvel) line += ", kept awake with the lid closed";
  return line;
}

}  // namespace virtualmac
