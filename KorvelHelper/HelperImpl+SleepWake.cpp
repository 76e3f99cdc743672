// Around sleep: the SMC keeps its keys until the Mac wakes, so the gate is paused before, and
// evaluated again after.

#include "ChargeLimits.h"
#include "HelperImpl.h"
#include "MachineReadings.h"

namespace korvel {

namespace {

// The system waits for our acknowledgement meanwhile; a write that takes longer goes on without us.
constexpr double preSleepWaitSeconds = 0.1;

}  // namespace

void HelperImpl::flushPreSleepPause() {
  submitAndWait(&HelperImpl::pauseBeforeSleep, preSleepWaitSeconds);
}

void HelperImpl::pauseBeforeSleep() {
  const HelperState known = stateCopy();
  if (known.forceDischargeActive) {
    log.log("pre-sleep: aborting active force-discharge before sleep");
    stopForceDischargeInternal(DischargeStopReason::systemWillSleep);
  }
  if (!pollingTimer) return;
  const auto power = MachineReadings::externalPowerConnected(platform.registry);
  if (!ChargeLimits::holdsBack(known.chargeLimit)) return;
  if (power != true && !known.forceDischargeActive) return;
  if (const WriterResult paused = writeChargingPause(currentCapabilities()); paused) {
    log.log("pre-sleep CHTE pause-write succeeded");
  } else {
    log.error("pre-sleep pause-write failed: %{public}s", paused.error().description().c_str());
  }
}

void HelperImpl::evaluateOnWake() {
  if (!pollingTimer) return;
  const HelperState known = stateCopy();
  if (known.forceDischargeActive) return;
  if (ChargeLimits::startsOnWake(known.chargeLimit)) startPollingLoop(known.chargeLimit);
}

}  // namespace korvel
