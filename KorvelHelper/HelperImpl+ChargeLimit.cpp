// The commands that set and lift the limit. Here too: how the record is persisted, and how it notes
// whether the last write read back as written.

#include "ChargeLimits.h"
#include "HelperImpl.h"
#include "Platform/WallClock.h"

namespace korvel {

void HelperImpl::setChargeLimit(std::uint8_t limit, Reply reply) {
  log.log("setChargeLimit(%{public}hhu) %{public}s", limit, callerText().c_str());
  if (!ChargeLimits::maySet(limit)) {
    reply(false, makeError(KorvelHelperError::codeOutOfRange,
                           "Charge limit must be between 20 and 100 (got " + std::to_string(limit) +
                               ")."));
    return;
  }
  submitCommand(std::move(reply), &HelperImpl::applyChargeLimit, limit);
}

void HelperImpl::applyChargeLimit(std::uint8_t limit, Reply reply) {
  supersedeTopOff();
  const Date now = platform.clock.now();
  changeState([&](HelperState& record) {
    record.chargeLimit = limit;
    record.lastWriteAt = now;
    record.heatPauseActive = false;
    record.topUpActive = false;
  });
  persistCurrentState();
  startPollingLoop(limit);
  reply(true, std::nullopt);
}

void HelperImpl::clearChargeLimit(Reply reply) {
  log.log("clearChargeLimit %{public}s", callerText().c_str());
  submitCommand(std::move(reply), &HelperImpl::clearLimit);
}

void HelperImpl::clearLimit(Reply reply) {
  supersedeTopOff();
  stopTimer(pollingTimer);
  disarmClamshellKeepAwake();
  const HelperCapabilities caps = currentCapabilities();
  const WriterResult resumed = writeChargingResume(caps);
  static_cast<void>(writeDischargeStopKeys(caps));
  releaseDischargeAssertion();
  // The limit keeps its number: clearing stops enforcement, and a later client starts it again.
  endAllActivity();
  persistCurrentState();
  if (resumed) {
    reply(true, std::nullopt);
  } else {
    reply(false, smcNSError(resumed.error()));
  }
}

void HelperImpl::endAllActivity() {
  const Date now = platform.clock.now();
  changeState([now](HelperState& record) {
    record.forceDischargeActive = false;
    record.heatPauseActive = false;
    record.lastWriteAt = now;
    record.topUpActive = false;
  });
}

void HelperImpl::persistCurrentState() {
  const auto written = persistence.write(stateCopy());
  if (written) return;
  log.fault("persistence.write failed: %{public}s", written.error().description().c_str());
  if (written.error().kind == HelperPersistence::PersistenceError::Kind::Rename) {
    revertToDurableState();
  }
}

void HelperImpl::revertToDurableState() {
  const HelperState durable = persistence.read();
  changeState([&](HelperState& record) { record = durable; });
  log.log("persistence rename failure — reverted in-memory state to last durable snapshot");
  if (durable.forceDischargeActive) return;
  static_cast<void>(writeDischargeStopKeys(currentCapabilities()));
  releaseDischargeAssertion();
  disarmClamshellKeepAwake();
  dischargeMinCapacitySeen.reset();
}

void HelperImpl::recordWriteVerified(bool verified) {
  if (stateField(&HelperState::lastWriteVerified) == verified) return;
  changeState([verified](HelperState& record) { record.lastWriteVerified = verified; });
  if (!verified) {
    log.fault(
        "SMC write unverified — read-back disagreed; capability may be silently rejected by "
        "firmware");
  }
  persistCurrentState();
}

}  // namespace korvel
