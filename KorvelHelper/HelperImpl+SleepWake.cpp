// Around sleep: what is left in the SMC holds until the Mac wakes, so the gate is paused before,
// and evaluated again after.

#include "HelperImpl.h"

namespace korvel {

namespace {

// The system waits for our acknowledgement meanwhile; a write that takes longer finishes by itself.
constexpr double preSleepWaitSeconds = 0.1;

}  // namespace

void HelperImpl::flushPreSleepPause() {
  const std::shared_ptr<DispatchGroup> group = platform.dispatch.makeGroup();
  group->enter();
  submit(
      [group](HelperImpl& self) {
        self.smcQueue.assertCurrent();
        self.pauseBeforeSleep();
        group->leave();
      },
      [group] { group->leave(); });
  static_cast<void>(group->wait(preSleepWaitSeconds));
}

void HelperImpl::pauseBeforeSleep() {
  const HelperState known = stateCopy();
  if (known.forceDischargeActive) {
    log.log("pre-sleep: aborting active force-discharge before sleep");
    stopForceDischargeInternal(DischargeStopReason::systemWillSleep);
  }
  if (!pollingTimer) return;
  const std::optional<bool> power = externalPowerConnected();
  if (known.chargeLimit < 20 || known.chargeLimit > 99) return;
  if (power != true && !known.forceDischargeActive) return;
  if (const WriterResult paused = writeChargingPause(currentCapabilities()); paused) {
    log.log("pre-sleep CHTE pause-write succeeded");
  } else {
    log.error("pre-sleep pause-write failed: %{public}s", paused.error().description().c_str());
  }
}

void HelperImpl::evaluateOnWake() {
  submit([](HelperImpl& self) {
    self.smcQueue.assertCurrent();
    if (!self.pollingTimer) return;
    const HelperState known = self.stateCopy();
    if (known.forceDischargeActive) return;
    if (known.chargeLimit >= 20 && known.chargeLimit <= 100) {
      self.startPollingLoop(known.chargeLimit);
    }
  });
}

}  // namespace korvel
