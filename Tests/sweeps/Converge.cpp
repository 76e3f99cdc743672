#include "Tests/sweeps/Converge.h"

#include <algorithm>
#include <cstdint>

namespace sweeps {

namespace {

using korvel::HelperCapabilities;

/// Checks that every call is over, and that only calls of ended connections lack an answer.
void checkReplies(Stage& stage, Findings& findings, bool mayFail) {
  const auto open = [&stage] {
    for (const auto& client : stage.clients) {
      for (const auto& call : client->calls()) {
        if (!call->over()) return true;
      }
    }
    return false;
  };
  stage.world.runUntil([&open] { return !open(); }, 10);
  for (const auto& client : stage.clients) {
    for (const auto& call : client->calls()) {
      findings.expect(call->over(), "no reply to " + call->selector);
      findings.expect(mayFail || !call->failed || !client->connected() || stage.exited(),
                      call->selector + " failed on a connection that stands: " + call->failure);
    }
  }
}

void restart(Stage& stage) {
  stage.world.killHelper();
  stage.world.startHelper();
  stage.world.runFor(0.1);
}

/// Connects a client and makes sure that it is served, by a helper that knows the machine's
/// capabilities. Returns true when the running helper could stay.
bool bringTogether(Stage& stage, Findings& findings, bool anew) {
  bool sameHelper = !anew;
  if (anew) stage.world.killHelper();
  if (!stage.world.helperRunning()) {
    stage.world.startHelper();
    stage.world.runFor(0.1);
    sameHelper = false;
  }
  stage.join();
  if (!stage.app().calls().back()->answered) {
    // A helper that could not read its own signature refuses every client until it ends.
    findings.expect(
        stage.world.logged("Listener", korvel::LogLevel::Fault,
                           "Release build with unreadable Team ID — refusing XPC connection"),
        "a client is not served");
    restart(stage);
    sameHelper = false;
    stage.join();
    findings.expect(stage.app().calls().back()->answered, "a client is not served again");
  }
  if (stage.app().capabilityRecord() != trueCapabilities(stage.mac())) {
    // A capability that the probe missed stays unknown until the next start.
    restart(stage);
    sameHelper = false;
    stage.join();
    findings.expect(stage.app().capabilityRecord() == trueCapabilities(stage.mac()),
                    "the capabilities are reported wrongly");
  }
  return sameHelper;
}

/// Checks that the gate follows the enforced limit without another command.
void checkGateByItself(Stage& stage, Findings& findings) {
  const auto state = stage.state();
  if (!findings.expect(state.has_value(), "the state is not told")) return;
  if (state->forceDischargeActive || state->lastWriteAt == korvel::Date::distantPast()) return;
  // When a new limit could not be recorded, the memory has the old one and the loop the new one.
  std::vector<std::int64_t> limits{state->chargeLimit};
  if (stage.lastLimitWanted()) limits.push_back(*stage.lastLimitWanted());
  findings.expect(gateSettles(stage.world, limits), "the gate is wrong once the faults ended");
}

void checkGateOnCommand(Stage& stage, Findings& findings) {
  const std::int64_t charge = stage.mac().battery.percent();
  const std::int64_t low = std::clamp<std::int64_t>(charge - 5, 20, 99);
  const std::int64_t high = charge + 10 < 100 ? charge + 10 : 100;
  for (const std::int64_t limit : {low, high}) {
    const std::string which = std::to_string(limit);
    findings.expect(stage.setLimit(static_cast<std::uint8_t>(limit)),
                    "the limit " + which + " is refused");
    findings.expect(gateSettles(stage.world, {limit}), "the gate is wrong at the limit " + which);
    const auto record = recordOnDisk(stage.mac());
    findings.expect(record && record->chargeLimit == limit,
                    "the record does not carry the limit " + which);
    findings.expect(record && record->lastWriteVerified, "the last write is not verified");
  }
}

void checkNothingLeft(Stage& stage, Findings& findings, const Excuses& excuses) {
  virtualmac::Machine& mac = stage.mac();
  findings.expect(!mac.smc.inflowInhibited(), "the adapter's inflow is still inhibited");
  findings.expect(excuses.sleepDisabled || mac.power.sleepDisabled() == stage.sleepDisabledByOther,
                  "SleepDisabled is not as the others left it");
  findings.expect(excuses.assertions || mac.power.assertions().empty(), "an assertion is left");
  checkAssertions(findings, stage.world);
  checkStateFile(findings, mac);
  const auto record = recordOnDisk(mac);
  findings.expect(record && !record->forceDischargeActive && !record->topUpActive,
                  "the record still has a flag set");
  findings.expect(excuses.claim || (record && !record->sleepDisabledByKorvel),
                  "the record still claims SleepDisabled");
}

void quit(Stage& stage, Findings& findings) {
  stage.expectExit();
  stage.app().quit();
  stage.run(1);
  findings.expect(stage.world.exitStatus() == 0, "the helper does not exit with status 0");
  findings.expect(stage.mac().power.assertions().empty(), "an assertion is left without a helper");
  findings.expect(!chargingPaused(stage.mac()), "charging is still held back");
}

}  // namespace

Excuses excusesFor(virtualmac::SeamCall call, const Stage& stage) {
  using virtualmac::SeamCall;
  Excuses excuses;
  excuses.descriptors = call == SeamCall::fileClose;
  excuses.assertions = call == SeamCall::assertionRelease;
  excuses.claim = call == SeamCall::fileReplaceItem;
  // A record that could not be read at the start loses its claim to SleepDisabled.
  const bool claimLost = stage.sleepDisabledByEarlierHelper &&
                         (call == SeamCall::fileExists || call == SeamCall::fileRead);
  excuses.sleepDisabled = call == SeamCall::settingsSet || call == SeamCall::settingsCopy ||
                          call == SeamCall::fileReplaceItem || claimLost;
  return excuses;
}

void converge(Stage& stage, Findings& findings, const Excuses& excuses) {
  checkReplies(stage, findings, excuses.failedCalls);
  checkConduct(findings, stage.world, stage.invariants);
  healMachine(stage.mac());
  stage.world.runFor(0.5);
  const bool sameHelper = bringTogether(stage, findings, excuses.restart);
  if (excuses.otherFamily) {
    findings.expect(stage.ask(stage.app().resetAllSMCKeys()), "the keys cannot be reset");
  }
  const bool canControl = trueCapabilities(stage.mac()).canControlCharging();
  if (sameHelper && canControl && !excuses.gateByItself && !excuses.otherFamily)
    checkGateByItself(stage, findings);
  findings.expect(stage.ask(stage.app().forceDischarge(false)), "a discharge cannot be stopped");
  findings.expect(stage.ask(stage.app().setClamshellKeepAwake(false)),
                  "keep-awake cannot be disarmed");
  if (canControl) {
    checkGateOnCommand(stage, findings);
  } else {
    findings.expect(stage.setLimit(50), "a limit is refused");
  }
  checkNothingLeft(stage, findings, excuses);
  checkIdleProcess(findings, stage.world, !excuses.descriptors);
  quit(stage, findings);
  checkReplies(stage, findings, excuses.failedCalls);
  checkConduct(findings, stage.world, stage.invariants);
}

}  // namespace sweeps
