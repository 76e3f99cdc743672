#include "Tests/sweeps/Recovery.h"

namespace sweeps {

namespace {

/// Returns the record that recovery makes of the leftovers.
korvel::HelperState recovered(const Leftovers& left) {
  korvel::HelperState record = left.record.value_or(korvel::HelperState::empty());
  record.forceDischargeActive = false;
  record.sleepDisabledByKorvel = false;
  record.topUpActive = false;
  record.lastDischargeAbortReason.reset();
  record.lastDischargeAbortAt.reset();
  record.helperVersion = "2.0.0";
  return record;
}

}  // namespace

void startAgain(Stage& stage) {
  stage.world.startHelper();
  stage.world.runFor(0.5);
  stage.mac().lid.open();
  stage.mac().power.wake();
  stage.world.runFor(0.5);
}

void checkHardwareFollowsRecord(Findings& findings, Stage& stage, const Leftovers& left) {
  virtualmac::Machine& mac = stage.mac();
  const korvel::HelperCapabilities caps = trueCapabilities(mac);
  const bool discharging = left.record && left.record->forceDischargeActive;
  const bool owning = left.record && left.record->sleepDisabledByKorvel;
  const bool cleared = discharging && caps.canForceDischarge();
  findings.expect(mac.smc.inflowInhibited() == (left.inflowInhibited && !cleared),
                  "the discharge keys are not as the record says");
  findings.expect(mac.power.sleepDisabled() == (left.sleepDisabled && !owning),
                  "SleepDisabled is not as the record says");
}

void recoverAlone(Stage& stage, Findings& findings) {
  const Leftovers left = leftoversOn(stage.world);
  startAgain(stage);
  stage.world.runFor(11);
  checkHardwareFollowsRecord(findings, stage, left);
  findings.expect(chargingPaused(stage.mac()) == left.chargingPaused,
                  "recovery moved the charging gate");
  const auto now = recordOnDisk(stage.mac());
  findings.expect(now == recovered(left), "the recovered record is another one");
}

}  // namespace sweeps
