#include "VirtualMac/Tools/StateText.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cmath>
#include <ctime>

#include "EnforcementDecision.h"

namespace virtualmac {

using korvel::Date;
using korvel::HelperCapabilities;
using korvel::HelperState;

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

std::string enforcement(const HelperState& state) {
  if (state.topUpActive)
    return fmt::format("charging to full once, then back to {} %", state.chargeLimit);
  if (state.forceDischargeActive)
    return fmt::format("running from the battery down to {} %, the adapter stays plugged in",
                       state.chargeLimit);
  if (neverSet(state)) return "nothing: no limit was ever set";
  if (state.chargeLimit < lowestLimit || state.chargeLimit > noLimit)
    return fmt::format("nothing: a limit of {} % is out of range", state.chargeLimit);
  if (state.chargeLimit == noLimit) return "nothing: charging is left to macOS";
  return fmt::format(
      "charging stops at {} %, goes on below {} %", state.chargeLimit,
      state.chargeLimit - korvel::effectiveBand(state.sailingBand, state.chargeLimit));
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

std::string stateText(const HelperState& state, const HelperCapabilities& capabilities) {
  std::string text;
  // Banners first: what a person must see.
  if (!state.lastWriteVerified)
    text += "! The last change of the charging hardware did not take hold.\n";
  if (state.lastDischargeAbortReason)
    text += fmt::format("! {}{}\n", *state.lastDischargeAbortReason,
                        state.lastDischargeAbortAt
                            ? fmt::format(" ({})", localTime(*state.lastDischargeAbortAt))
                            : "");
  if (state.sleepDisabledByKorvel) text += "! The Mac is kept awake with its lid closed.\n";
  text += fmt::format("limit          {} %\n", state.chargeLimit);
  text += fmt::format("enforced       {}\n", enforcement(state));
  text += capabilitiesText(capabilities);
  text +=
      fmt::format("last write     {}\n", neverSet(state) ? "never" : localTime(state.lastWriteAt));
  text += fmt::format("helper         {}\n", state.helperVersion.value_or("unknown version"));
  return text;
}

std::string stateLine(const HelperState& state) {
  std::string line = fmt::format("limit {} %, {}", state.chargeLimit, enforcement(state));
  if (!state.lastWriteVerified) line += ", last write not verified";
  if (state.lastDischargeAbortReason) line += ", " + *state.lastDischargeAbortReason;
  if (state.sleepDisabledByKorvel) line += ", kept awake with the lid closed";
  return line;
}

}  // namespace virtualmac
