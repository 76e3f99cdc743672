#include <algorithm>

#include "Tests/smallscope/Scope.h"
#include "Tests/sweeps/Recovery.h"

namespace smallscope {

using sweeps::Findings;

sweeps::Excuses Scope::excuses() const {
  sweeps::Excuses found;
  // The next run does not know of a state that could not be recorded.
  const bool recordFails = has("disk-fault");
  found.sleepDisabled = recordFails;
  found.claim = recordFails;
  found.gateByItself = recordFails;
  found.failedCalls = hasEnd();
  // A run that starts without the SMC uses the other control, if there is one.
  found.otherFamily = has("smc-fault") && hasEnd();
  return found;
}

bool Scope::forgets() const { return has("disk-fault") && hasEnd(); }

void Scope::judge(Findings& findings) {
  endFaults(findings);
  stopRestarts();
  if (subject.killAt > 0) {
    judgeRecovery(findings);
  } else {
    sweeps::healMachine(mac());
    world().runFor(0.5);
    judgeState(findings);
    if (findings.empty()) judgeDeparture(findings);
  }
  if (findings.empty()) sweeps::converge(stage, findings, excuses());
  stage.invariants.finish();
  if (findings.empty()) sweeps::checkConduct(findings, world(), stage.invariants);
}

void Scope::judgeRecovery(Findings& findings) {
  if (spoil) spoil(mac());
  // A message that the killed helper did not take waits for the next one, which then does more.
  const bool awaited = std::ranges::any_of(stage.clients, [](const auto& client) {
    return std::ranges::any_of(client->calls(), [](const auto& call) { return !call->over(); });
  });
  if (awaited) {
    sweeps::startAgain(stage);
    world().runFor(11);
    return;
  }
  sweeps::recoverAlone(stage, findings);
  sweeps::checkStateFile(findings, mac());
  sweeps::checkAssertions(findings, world());
  sweeps::checkIdleProcess(findings, world());
}

/// A client that comes now is told the truth, and the hardware is as the helper tells it.
void Scope::judgeState(Findings& findings) {
  if (!world().helperRunning()) world().startHelper();
  world().runFor(0.1);
  stage.join();
  world().runFor(5.5);
  const auto told = stage.state();
  if (!findings.expect(told.has_value(), "the state is not told")) return;
  if (spoil) spoil(mac());
  const bool recordFails = has("disk-fault");
  const bool controlFails = has("smc-fault");
  if (!recordFails) checkRecord(findings, *told);
  findings.expect(
      controlFails || forgets() || mac().smc.inflowInhibited() == told->forceDischargeActive,
      "the adapter's inflow is not as the state says");
  findings.expect(recordFails || mac().power.sleepDisabled() == told->sleepDisabledByKorvel,
                  "SleepDisabled is not as the state says");
  findings.expect(
      told->forceDischargeActive || told->sleepDisabledByKorvel || mac().power.assertions().empty(),
      "an assertion is held for nothing");
}

void Scope::checkRecord(Findings& findings, const korvel::HelperState& told) {
  const auto record = recordOnDisk(mac());
  if (!findings.expect(record.has_value(), "there is no record")) return;
  // A top-off that cannot open the gate has ended the discharge, and is not recorded.
  const bool gateFails = has("smc-fault") || !sweeps::trueCapabilities(mac()).canControlCharging();
  const bool claims = has("top-off") && gateFails && record->forceDischargeActive;
  findings.expect(record->chargeLimit == told.chargeLimit &&
                      (claims || record->forceDischargeActive == told.forceDischargeActive) &&
                      record->topUpActive == told.topUpActive &&
                      record->sleepDisabledByKorvel == told.sleepDisabledByKorvel,
                  "the record and the state differ");
}

/// Without a client, everything is handed back in half a minute, or a discharge under a closed lid
/// goes on as it was asked for.
void Scope::judgeDeparture(Findings& findings) {
  leave();
  world().runFor(31);
  const bool unattended = mac().smc.inflowInhibited() && mac().power.sleepDisabled();
  if (unattended || has("smc-fault") || forgets()) return;
  findings.expect(!sweeps::chargingPaused(mac()), "charging is held back for nobody");
  findings.expect(!mac().smc.inflowInhibited(), "the inflow is inhibited for nobody");
  findings.expect(has("disk-fault") || !mac().power.sleepDisabled(),
                  "SleepDisabled is on for nobody");
  findings.expect(mac().power.assertions().empty(), "an assertion is held for nobody");
}

}  // namespace smallscope
