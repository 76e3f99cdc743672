// The polling loop that holds the charging gate to a target, and the writers of the gate.

#include "EnforcementDecision.h"
#include "HelperImpl.h"

namespace korvel {

namespace {

constexpr double pollingIntervalSeconds = 5.0;
constexpr std::int64_t lowestTarget = 20;
constexpr std::int64_t noLimit = 100;

}  // namespace

void HelperImpl::startPollingLoop(std::int64_t target) {
  stopPollingLoop();
  auto timer = platform.dispatch.makeTimer(smcQueue.platformQueue());
  timer->schedule(0, pollingIntervalSeconds, 0);
  timer->setEventHandler([weak = weak_from_this(), target] {
    const std::shared_ptr<HelperImpl> core = weak.lock();
    if (!core) return;
    core->smcQueue.assertCurrent();
    core->pollOnce(target);
  });
  pollingTimer = std::move(timer);
  pollingTimer->resume();
}

void HelperImpl::pollOnce(std::int64_t target) {
  if (target < lowestTarget || target > noLimit) {
    log.fault("pollOnce: target %ld out of range — stopping loop", static_cast<long>(target));
    stopPollingLoop();
    return;
  }
  if (stateField(&HelperState::forceDischargeActive)) {
    watchDischarge(target);
    return;
  }
  const std::optional<std::int64_t> capacity = currentBatteryCapacityPercent();
  const std::int64_t band = stateField(&HelperState::sailingBand);
  const std::optional<bool> power = externalPowerConnected();
  if (target == noLimit) {
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
  stopPollingLoop();
  log.log("100%% target — returned charging to macOS and stopped enforcement");
}

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
  return writeGate(caps,
                   {.tahoe = {0x00, 0x00, 0x00, 0x00}, .preTahoe = {0x00}, .nativeLimit = noLimit});
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
  const std::string outcome =
      std::string(action) + ":" + (result ? std::string("ok") : result.error().description());
  if (lastEnforcementOutcome == outcome) return;
  lastEnforcementOutcome = outcome;
  if (result) {
    log.log("charge enforcement %{public}s", outcome.c_str());
  } else {
    log.error("charge enforcement %{public}s — limit is NOT being applied", outcome.c_str());
  }
}

}  // namespace korvel
