// The Mac is held awake under a closed lid by a global setting that may belong to somebody else: it
// is cleared only when the record says that this helper set it.

#include "HelperImpl.h"
#include "MachineReadings.h"

namespace korvel {

void HelperImpl::setClamshellKeepAwake(bool enabled, Reply reply) {
  const CallerIdentity caller = currentCallerIdentity();
  log.log("setClamshellKeepAwake(%{bool,public}d) pid=%{public}d signingID=%{public}s", enabled,
          caller.pid, caller.signingID.c_str());
  submitCommand(std::move(reply),
                enabled ? &HelperImpl::armClamshellKeepAwake : &HelperImpl::disarmOnRequest);
}

void HelperImpl::disarmOnRequest(Reply reply) {
  const bool drainsUnderLid = stateField(&HelperState::forceDischargeActive) &&
                              MachineReadings::clamshellClosed(platform.registry);
  disarmClamshellKeepAwake();
  if (drainsUnderLid) {
    log.log("keep-awake disarmed under a closed lid — aborting active discharge");
    stopForceDischargeInternal(DischargeStopReason::clamshellDisarmed);
  }
  reply(true, std::nullopt);
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
  // Ownership reaches the disk before the setting changes: if this helper dies in between, the next
  // one clears the setting.
  changeState([](HelperState& record) { record.sleepDisabledByKorvel = true; });
  persistCurrentState();
  const bool enabled = clamshellSleep.enable();
  clamshellKeepAwakeArmed = enabled;
  clamshellClosedAt.reset();
  if (!enabled) {
    changeState([](HelperState& record) { record.sleepDisabledByKorvel = false; });
    persistCurrentState();
    reply(false, makeError(KorvelHelperError::codePMAssertionFailed,
                           "Could not keep the Mac awake for clamshell discharge (SleepDisabled "
                           "write failed)."));
    return;
  }
  log.log("clamshell keep-awake ARMED");
  reply(true, std::nullopt);
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
  changeState([](HelperState& record) { record.sleepDisabledByKorvel = false; });
  persistCurrentState();
  log.log("clamshell keep-awake DISARMED");
}

}  // namespace korvel
