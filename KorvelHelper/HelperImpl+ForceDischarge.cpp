// The battery is drained on mains power: start, stop, and the watchdog that each tick runs while a
// discharge is active.

#include "ChargeLimits.h"
#include "HelperImpl.h"
#include "MachineReadings.h"
#include "Platform/WallClock.h"

namespace korvel {

namespace {

constexpr std::uint8_t inflowOn = 0x00;
constexpr std::uint8_t inhibitTahoe = 0x08;
constexpr std::uint8_t inhibitPreTahoe = 0x01;

}  // namespace

void HelperImpl::forceDischarge(bool enable, Reply reply) {
  log.log("forceDischarge(%{bool,public}d) %{public}s", enable, callerText().c_str());
  submitCommand(std::move(reply),
                enable ? &HelperImpl::startForceDischarge : &HelperImpl::stopForceDischarge);
}

std::optional<ErrorObject> HelperImpl::dischargeRefusal() {
  const bool lidClosed = MachineReadings::clamshellClosed(platform.registry);
  if (lidClosed && !clamshellKeepAwakeArmed) {
    return makeError(KorvelHelperError::codeUnsupportedCapability,
                     "Open the lid to start force-discharge — clamshell mode is unsafe with the "
                     "adapter inflow disabled on this Mac.");
  }
  const auto capacity = MachineReadings::batteryCapacityPercent(platform.powerSources);
  if (!capacity) {
    return makeError(KorvelHelperError::codeOutOfRange,
                     "Can't read the battery level right now — try again in a moment before "
                     "starting force-discharge.");
  }
  const std::int64_t floor = dischargeFloorPercent(lidClosed);
  if (*capacity <= floor) {
    return makeError(KorvelHelperError::codeOutOfRange,
                     "Battery is at " + std::to_string(*capacity) + "% — below the " +
                         std::to_string(floor) + "% safety floor for force-discharge.");
  }
  const std::int64_t limit = stateField(&HelperState::chargeLimit);
  if (*capacity <= limit) {
    return makeError(KorvelHelperError::codeOutOfRange,
                     "Battery is already at the " + std::to_string(limit) + "% limit.");
  }
  return std::nullopt;
}

void HelperImpl::startForceDischarge(Reply reply) {
  const HelperCapabilities caps = currentCapabilities();
  if (const std::optional<ErrorObject> refusal = dischargeRefusal()) {
    reply(false, refusal);
    return;
  }
  if (stateField(&HelperState::forceDischargeActive)) {
    reply(true, std::nullopt);
    return;
  }
  releaseDischargeAssertion();
  if (!caps.canForceDischarge()) {
    reply(false, makeError(KorvelHelperError::codeUnsupportedCapability,
                           "Force-discharge isn't supported on this Mac."));
    return;
  }
  if (const WriterResult inhibited = writeDischargeStartKeys(caps); !inhibited) {
    disarmClamshellKeepAwake();
    reply(false, smcNSError(inhibited.error()));
    return;
  }
  supersedeTopOff();
  dischargeAssertionID = pmAssertions.acquire("Korvel: force-discharge");
  const Date now = platform.clock.now();
  changeState([now](HelperState& record) {
    record.forceDischargeActive = true;
    record.lastWriteAt = now;
    record.lastDischargeAbortReason.reset();
    record.lastDischargeAbortAt.reset();
    record.topUpActive = false;
  });
  dischargeMinCapacitySeen.reset();
  persistCurrentState();
  if (!pollingTimer) {
    const std::int64_t limit = stateField(&HelperState::chargeLimit);
    log.log("forceDischarge: arming watchdog polling loop at limit=%{public}ld",
            static_cast<long>(limit));
    startPollingLoop(limit);
  }
  reply(true, std::nullopt);
}

void HelperImpl::stopForceDischarge(Reply reply) {
  const HelperCapabilities caps = currentCapabilities();
  const WriterResult stopped = writeDischargeStopKeys(caps);
  pauseIfAboveLimit(caps);
  disarmClamshellKeepAwake();
  dischargeMinCapacitySeen.reset();
  releaseDischargeAssertion();
  const Date now = platform.clock.now();
  changeState([now](HelperState& record) {
    record.forceDischargeActive = false;
    record.lastWriteAt = now;
  });
  persistCurrentState();
  if (stopped) {
    reply(true, std::nullopt);
  } else {
    reply(false, smcNSError(stopped.error()));
  }
}

void HelperImpl::pauseIfAboveLimit(const HelperCapabilities& caps) {
  // Otherwise the battery would charge on above the limit until the next tick.
  const std::int64_t limit = stateField(&HelperState::chargeLimit);
  if (!ChargeLimits::holdsBack(limit) ||
      MachineReadings::externalPowerConnected(platform.registry) != true)
    return;
  const auto capacity = MachineReadings::batteryCapacityPercent(platform.powerSources);
  if (capacity && *capacity >= limit) static_cast<void>(writeChargingPause(caps));
}

WriterResult HelperImpl::writeDischargeStartKeys(const HelperCapabilities& caps) {
  if (caps.tahoeDischarge) return writer.writeKey("CHIE", {{inhibitTahoe}});
  WriterResult first = writer.writeKey("CH0I", {{inhibitPreTahoe}});
  if (first) static_cast<void>(writer.writeKey("CH0J", {{inhibitPreTahoe}}));
  return first;
}

WriterResult HelperImpl::writeDischargeStopKeys(const HelperCapabilities& caps) {
  if (caps.tahoeDischarge) return writer.writeKey("CHIE", {{inflowOn}});
  if (!caps.preTahoeDischarge) return {};
  static_cast<void>(writer.writeKey("CH0J", {{inflowOn}}));
  return writer.writeKey("CH0I", {{inflowOn}});
}

void HelperImpl::watchDischarge() {
  const auto capacity = MachineReadings::batteryCapacityPercent(platform.powerSources);
  if (!capacity) {
    countUnreadableCapacity();
    return;
  }
  consecutiveNilCapacityReads = 0;
  const bool lidClosed = MachineReadings::clamshellClosed(platform.registry);
  const DischargeFacts facts{.capacity = *capacity,
                             .target = pollingTarget,
                             .lidClosed = lidClosed,
                             .keepAwakeArmed = clamshellKeepAwakeArmed,
                             .lidClosedSeconds = lidClosedSeconds(lidClosed),
                             .minimumSeen = dischargeMinCapacitySeen};
  const DischargeVerdict verdict = decideDischarge(
      facts, [this] { return MachineReadings::batteryTemperatureCelsius(platform.registry); });
  dischargeMinCapacitySeen = verdict.minimumSeen;
  if (!verdict.stop) return;
  logVerdict(facts, verdict);
  stopForceDischargeInternal(*verdict.stop);
}

void HelperImpl::countUnreadableCapacity() {
  if (!stateField(&HelperState::forceDischargeActive)) return;
  ++consecutiveNilCapacityReads;
  if (consecutiveNilCapacityReads < unreadableCapacityLimitTicks) return;
  log.fault(
      "auto-stop discharge: battery capacity unreadable for %{public}ld consecutive ticks — "
      "failing safe",
      static_cast<long>(consecutiveNilCapacityReads));
  consecutiveNilCapacityReads = 0;
  stopForceDischargeInternal(DischargeStopReason::floorReached);
}

std::optional<double> HelperImpl::lidClosedSeconds(bool lidClosed) {
  if (!clamshellKeepAwakeArmed) return std::nullopt;
  if (!lidClosed) {
    clamshellClosedAt.reset();
    return std::nullopt;
  }
  const Date now = platform.clock.now();
  if (!clamshellClosedAt) clamshellClosedAt = now;
  return now.secondsSinceReference - clamshellClosedAt->secondsSinceReference;
}

void HelperImpl::logVerdict(const DischargeFacts& facts, const DischargeVerdict& verdict) const {
  const auto capacity = static_cast<long>(facts.capacity);
  switch (*verdict.stop) {
    case DischargeStopReason::lidClosed:
      log.log("auto-stop discharge: lid closed during active discharge");
      break;
    case DischargeStopReason::clamshellTimeout:
      log.log("auto-stop discharge: clamshell lid-closed heat-soak duration cap reached");
      break;
    case DischargeStopReason::clamshellOverheated:
      log.log("auto-stop discharge: battery %{public}ld°C ≥ %{public}ld°C clamshell thermal cap",
              static_cast<long>(*verdict.temperatureCelsius),
              static_cast<long>(clamshellThermalCapCelsius));
      break;
    case DischargeStopReason::chargeInhibitLost:
      log.log(
          "auto-stop discharge: capacity rebounded to %{public}ld%% (≥ min %{public}ld%% + "
          "%{public}ld) — inhibit lost, pack is charging",
          capacity, static_cast<long>(*verdict.minimumSeen),
          static_cast<long>(dischargeReboundPercent));
      break;
    case DischargeStopReason::floorReached:
      log.log("auto-stop discharge: cap=%{public}ld ≤ floor=%{public}ld", capacity,
              static_cast<long>(dischargeFloorPercent(facts.lidClosed)));
      break;
    case DischargeStopReason::targetReached:
      log.log("auto-stop discharge: cap=%{public}ld ≤ target=%{public}ld", capacity,
              static_cast<long>(facts.target));
      break;
    case DischargeStopReason::systemWillSleep:
    case DischargeStopReason::powerDisconnected:
    case DischargeStopReason::clamshellDisarmed:
      break;  // Not rules of the watchdog.
  }
}

void HelperImpl::stopForceDischargeInternal(DischargeStopReason reason) {
  dischargeMinCapacitySeen.reset();
  consecutiveNilCapacityReads = 0;
  static_cast<void>(writeDischargeStopKeys(currentCapabilities()));
  disarmClamshellKeepAwake();
  releaseDischargeAssertion();
  const Date now = platform.clock.now();
  changeState([&](HelperState& record) {
    record.forceDischargeActive = false;
    record.lastDischargeAbortReason = std::string(bannerCopy(reason));
    record.lastDischargeAbortAt = now;
  });
  persistCurrentState();
  log.log("force-discharge auto-stopped: reason=%{public}s", std::string(rawValue(reason)).c_str());
}

}  // namespace korvel
