// The polling loop that holds the charging gate to a target, and the writers of the gate.

#include <array>

#include "ChargeLimits.h"
#include "EnforcementDecision.h"
#include "HelperImpl.h"
#include "MachineReadings.h"

namespace korvel {

namespace {

constexpr double pollingIntervalSeconds = 5.0;

}  // namespace

void HelperImpl::startPollingLoop(std::int64_t target) {
  pollingTarget = target;
  startTimer(pollingTimer, 0, pollingIntervalSeconds, &HelperImpl::pollOnce);
}

void HelperImpl::pollOnce() {
  const std::int64_t target = pollingTarget;
  if (!ChargeLimits::isTarget(target)) {
    log.fault("pollOnce: target %ld out of range — stopping loop", static_cast<long>(target));
    stopTimer(pollingTimer);
    return;
  }
  if (stateField(&HelperState::forceDischargeActive)) {
    watchDischarge();
    return;
  }
  const auto capacity = MachineReadings::batteryCapacityPercent(platform.powerSources);
  const std::int64_t band = stateField(&HelperState::sailingBand);
  const auto power = MachineReadings::externalPowerConnected(platform.registry);
  if (target == ChargeLimits::none) {
    handChargingBack();
    return;
  }
  switch (decideGate(target, band, capacity, power)) {
    case GateDecision::Pause:
      reportEnforcement("pause", writeChargingPause(currentCapabilities()));
      break;
    case GateDecision::Resume:
      reportEnforcement("resume", writeChargingResume(currentCapabilities()));
      break;
    case GateDecision::Hold:
      break;
  }
}

void HelperImpl::handChargingBack() {
  if (!writeChargingResume(currentCapabilities())) return;
  if (!stateField(&HelperState::lastWriteVerified)) return;
  stopTimer(pollingTimer);
  log.log("100%% target — returned charging to macOS and stopped enforcement");
}

/// One value of the gate in the terms of each hardware that has one.
struct HelperImpl::GatePayload {
  std::array<std::uint8_t, 4> tahoe;
  std::array<std::uint8_t, 1> preTahoe;
  std::int64_t nativeLimit;
};

WriterResult HelperImpl::writeGate(const HelperCapabilities& caps, const GatePayload& payload) {
  if (caps.tahoeCharging) {
    const VerifiedWrite write = writer.writeKeyAndVerify("CHTE", payload.tahoe);
    recordWriteVerified(write.verified);
    return write.result;
  }
  if (caps.preTahoeCharging) {
    const VerifiedWrite first = writer.writeKeyAndVerify("CH0B", payload.preTahoe);
    const VerifiedWrite second = writer.writeKeyAndVerify("CH0C", payload.preTahoe);
    recordWriteVerified(first.verified && second.verified);
    return first.result ? second.result : first.result;
  }
  if (caps.nativeCharging && nativeChargeBackend) {
    return writeNativeLimit(*nativeChargeBackend, payload.nativeLimit);
  }
  return std::unexpected(WriterError::SMCUnavailable{});
}

WriterResult HelperImpl::writeChargingPause(const HelperCapabilities& caps) {
  return writeGate(caps, {.tahoe = {0x01, 0x00, 0x00, 0x00},
                          .preTahoe = {0x02},
                          .nativeLimit = stateField(&HelperState::chargeLimit)});
}

WriterResult HelperImpl::writeChargingResume(const HelperCapabilities& caps) {
  return writeGate(
      caps,
      {.tahoe = {0x00, 0x00, 0x00, 0x00}, .preTahoe = {0x00}, .nativeLimit = ChargeLimits::none});
}

WriterResult HelperImpl::writeNativeLimit(PowerUIChargeBackend& backend, std::int64_t target) {
  const auto readsBack = backend.setLimit(target);
  if (readsBack) {
    recordWriteVerified(*readsBack);
    return {};
  }
  recordWriteVerified(false);
  const std::string text = readsBack.error().description();
  log.fault("PowerUI native charge write failed: %{public}s", text.c_str());
  return std::unexpected(WriterError::NativeControlFailed{text});
}

void HelperImpl::reportEnforcement(std::string_view action, const WriterResult& result) {
  std::string outcome(action);
  outcome += result ? ":ok" : ":" + result.error().description();
  if (lastEnforcementOutcome == outcome) return;
  lastEnforcementOutcome = outcome;
  if (result) {
    log.log("charge enforcement %{public}s", outcome.c_str());
  } else {
    log.error("charge enforcement %{public}s — limit is NOT being applied", outcome.c_str());
  }
}

}  // namespace korvel
