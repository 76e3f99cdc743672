// The commands that set and lift the limit, and the two steps that every change of state goes
// through: persisting it, and remembering whether the hardware took the last write.

#include "HelperImpl.h"
#include "Platform/WallClock.h"

namespace korvel {

void HelperImpl::setChargeLimit(std::uint8_t limit, Reply reply) {
  const CallerIdentity caller = currentCallerIdentity();
  log.log(
      "setChargeLimit(%{public}hhu) pid=%{public}d signingID=%{public}s team=%{public}s "
      "cdHash=%{public}s",
      limit, caller.pid, caller.signingID.c_str(), caller.teamID.c_str(), caller.cdHashHex.c_str());
  if (limit < 20 || limit > 100) {
    reply(false,
          makeError(KorvelHelperError::codeOutOfRange,
                    "Charge limit must be between 20 and 100 (got " + std::to_string(limit) + ").",
                    {}));
    return;
  }
  submitCommand(std::move(reply), [limit](HelperImpl& self, Reply answer) {
    self.smcQueue.assertCurrent();
    self.supersedeTopOff();
    const Date now = self.platform.clock.now();
    {
      const ScopedLock held(self.stateLock);
      self.state.chargeLimit = limit;
      self.state.lastWriteAt = now;
      self.state.heatPauseActive = false;
      self.state.topUpActive = false;
    }
    self.persistCurrentState();
    self.startPollingLoop(limit);
    answer(true, std::nullopt);
  });
}

void HelperImpl::clearChargeLimit(Reply reply) {
  const CallerIdentity caller = currentCallerIdentity();
  log.log("clearChargeLimit pid=%{public}d signingID=%{public}s team=%{public}s cdHash=%{public}s",
          caller.pid, caller.signingID.c_str(), caller.teamID.c_str(), caller.cdHashHex.c_str());
  submitCommand(std::move(reply), [](HelperImpl& self, Reply answer) {
    self.smcQueue.assertCurrent();
    self.supersedeTopOff();
    self.stopPollingLoop();
    self.disarmClamshellKeepAwake();
    const HelperCapabilities caps = self.currentCapabilities();
    const WriterResult resumed = self.writeChargingResume(caps);
    static_cast<void>(self.writeDischargeStopKeys(caps));
    self.releaseDischargeAssertion();
    // The limit keeps its number: clearing stops enforcement, and a later client starts it again.
    self.endAllActivity();
    self.persistCurrentState();
    if (resumed) {
      answer(true, std::nullopt);
    } else {
      answer(false, smcNSError(resumed.error()));
    }
  });
}

void HelperImpl::endAllActivity() {
  const Date now = platform.clock.now();
  const ScopedLock held(stateLock);
  state.forceDischargeActive = false;
  state.heatPauseActive = false;
  state.lastWriteAt = now;
  state.topUpActive = false;
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
  {
    const ScopedLock held(stateLock);
    state = durable;
  }
  log.log("persistence rename failure — reverted in-memory state to last durable snapshot");
  if (durable.forceDischargeActive) return;
  static_cast<void>(writeDischargeStopKeys(currentCapabilities()));
  releaseDischargeAssertion();
  disarmClamshellKeepAwake();
  dischargeMinCapacitySeen.reset();
}

void HelperImpl::recordWriteVerified(bool verified) {
  if (stateField(&HelperState::lastWriteVerified) == verified) return;
  {
    const ScopedLock held(stateLock);
    state.lastWriteVerified = verified;
  }
  if (!verified) {
    log.fault(
        "SMC write unverified — read-back disagreed; capability may be silently rejected by "
        "firmware");
  }
  persistCurrentState();
}

}  // namespace korvel
