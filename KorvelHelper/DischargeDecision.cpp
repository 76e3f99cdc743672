#include "DischargeDecision.h"

#include <utility>

#include "Base/Trap.h"

namespace korvel {

namespace {

/// Whether the charge rose from the lowest one seen, which it is not below, by the rebound or more.
/// The difference has no sign, so it fits for any two readings, absurd ones included.
bool hasRebounded(std::int64_t capacity, std::int64_t minimumSeen) {
  const auto risen = static_cast<std::uint64_t>(capacity) - static_cast<std::uint64_t>(minimumSeen);
  return std::cmp_greater_equal(risen, dischargeReboundPercent);
}

struct ReasonTexts {
  std::string_view rawValue;
  std::string_view banner;
};

ReasonTexts textsOf(DischargeStopReason reason) {
  switch (reason) {
    case DischargeStopReason::floorReached:
      return {"floorReached", "Discharge stopped — battery reached the safety floor."};
    case DischargeStopReason::targetReached:
      return {"targetReached", "Discharge complete — battery is at the configured limit."};
    case DischargeStopReason::lidClosed:
      return {"lidClosed",
              "Discharge stopped — closing the lid is unsafe with the adapter inflow disabled. "
              "Reopen the lid and restart if you still want to drain."};
    case DischargeStopReason::systemWillSleep:
      return {"systemWillSleep",
              "Discharge stopped — system was about to sleep. Restart the discharge once you're "
              "back."};
    case DischargeStopReason::powerDisconnected:
      return {"powerDisconnected",
              "Discharge stopped — the power adapter was unplugged. Reconnect and restart if you "
              "still want to drain to the limit."};
    case DischargeStopReason::clamshellTimeout:
      return {"clamshellTimeout",
              "Clamshell discharge stopped — reached its safety time limit to avoid heat build-up "
              "with the lid closed. Restart it if you still want to drain."};
    case DischargeStopReason::clamshellOverheated:
      return {"clamshellOverheated",
              "Clamshell discharge stopped — the battery got too warm with the lid closed. Let it "
              "cool down, then restart if you still want to drain."};
    case DischargeStopReason::clamshellDisarmed:
      return {"clamshellDisarmed",
              "Clamshell discharge stopped — the external display was disconnected (or the "
              "experimental option was turned off). Reopen the lid or reconnect a display to drain "
              "again."};
    case DischargeStopReason::chargeInhibitLost:
      return {"chargeInhibitLost",
              "Discharge stopped — the battery started charging again (the power adapter "
              "re-negotiated). Restart discharge if you still want to drain to the limit."};
  }
  trap("a discharge stop reason out of range");
}

}  // namespace

std::string_view rawValue(DischargeStopReason reason) { return textsOf(reason).rawValue; }
std::string_view bannerCopy(DischargeStopReason reason) { return textsOf(reason).banner; }

DischargeVerdict decideDischarge(
    const DischargeFacts& facts,
    const std::function<std::optional<std::int64_t>()>& readTemperature) {
  DischargeVerdict verdict{.stop = {}, .minimumSeen = facts.minimumSeen, .temperatureCelsius = {}};
  const auto stopping = [&verdict](DischargeStopReason reason) {
    verdict.stop = reason;
    return verdict;
  };

  if (facts.lidClosed && !facts.keepAwakeArmed) return stopping(DischargeStopReason::lidClosed);
  if (facts.keepAwakeArmed) {
    if (facts.lidClosedSeconds && *facts.lidClosedSeconds >= clamshellHeatSoakSeconds) {
      return stopping(DischargeStopReason::clamshellTimeout);
    }
    if (facts.lidClosed) verdict.temperatureCelsius = readTemperature();
    if (verdict.temperatureCelsius && *verdict.temperatureCelsius >= clamshellThermalCapCelsius) {
      return stopping(DischargeStopReason::clamshellOverheated);
    }
  }

  if (!facts.minimumSeen || facts.capacity < *facts.minimumSeen) {
    verdict.minimumSeen = facts.capacity;
  } else if (hasRebounded(facts.capacity, *facts.minimumSeen)) {
    return stopping(DischargeStopReason::chargeInhibitLost);
  }
  if (facts.capacity <= dischargeFloorPercent(facts.lidClosed)) {
    return stopping(DischargeStopReason::floorReached);
  }
  if (facts.capacity <= facts.target) return stopping(DischargeStopReason::targetReached);
  return verdict;
}

}  // namespace korvel
