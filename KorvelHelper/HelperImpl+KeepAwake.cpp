// Holding the Mac awake under a closed lid, by a global setting that may belong to somebody else:
// it is cleared only when the record says that this helper set it.

#include "HelperImpl.h"

namespace korvel {

void HelperImpl::setClamshellKeepAwake(bool enabled, Reply reply) {
  const CallerIdentity caller = currentCallerIdentity();
  log.log("setClamshellKeepAwake(%{bool,public}d) pid=%{public}d signingID=%{public}s", enabled,
          caller.pid, caller.signingID.c_str());
  submitCommand(std::move(reply), [enabled](HelperImpl& self, Reply answer) {
    self.smcQueue.assertCurrent();
    if (enabled) {
      self.armClamshellKeepAwake(std::move(answer));
    } else {
      self.disarmOnRequest();
      answer(true, std::nullopt);
    }
  });
}

void HelperImpl::disarmOnRequest() {
  if (!stateField(&HelperState::forceDischargeActive)) {
    disarmClamshellKeepAwake();
    return;
  }
  const bool lidClosed = isClamshellClosed();
  disarmClamshellKeepAwake();
  if (!lidClosed) return;
  log.log("keep-awake disarmed under a closed lid — aborting active discharge");
  stopForceDischargeInternal(DischargeStopReason::clamshellDisarmed);
}

void HelperImpl::armClamshellKeepAwake(Reply reply) {
  if (clamshellSleep.isEnabled() && !stateField(&HelperState::sleepDisabledByKorvel)) {
    clamshellKeepAwakeArmed = true;
    clamshellClosedAt.reset();
    log.log(
        "clamshell keep-awake ARMED (SleepDisabled already set externally — not taking "
        "ownership)");
    reply(true, std::nullopt);
    return;
  }
  // Ownership is on disk before the setting is: a helper that dies in between is cleaned up after.
  setSleepDisabledOwnership(true);
  persistCurrentState();
  const bool enabled = clamshellSleep.enable();
  clamshellKeepAwakeArmed = enabled;
  clamshellClosedAt.reset();
  if (!enabled) {
    setSleepDisabledOwnership(false);
    persistCurrentState();
    reply(false, makeError(KorvelHelperError::codePMAssertionFailed,
                           "Could not keep the Mac awake for clamshell discharge (SleepDisabled "
                           "write failed).",
                           {}));
    return;
  }
  log.log("clamshell keep-awake ARMED");
  reply(true, std::nullopt);
}

void HelperImpl::setSleepDisabledOwnership(bool owned) {
  const ScopedLock held(stateLock);
  state.sleepDisabledByKorvel = owned;
}

void HelperImpl::disarmClamshellKeepAwake() {
  clamshellClosedAt.reset();
  if (!clamshellKeepAwakeArmed) return;
  clamshellKeepAwakeArmed = false;
  if (!stateField(&HelperState::sleepDisabledByKorvel)) {
    log.log("clamshell keep-awake DISARMED (SleepDisabled left as found — set externally)");
    return;
  }
  clamshellSleep.disable();
  setSleepDisabledOwnership(false);
  persistCurrentState();
  log.log("clamshell keep-awake DISARMED");
}

}  // namespace korvel
