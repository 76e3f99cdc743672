#include "Tests/sweeps/Recovery.h"
#include "Tests/sweeps/StoryTest.h"

namespace sweeps {

namespace {

constexpr std::string_view alone = "alone";
constexpr std::string_view withClient = "with-client";

/// Plays until the helper is killed at call k; returns false when it exited before.
bool playUntilKilled(Stage& stage, std::uint64_t k, Findings& findings) {
  stage.world.faults().killAtCall(k);
  stage.play();
  stage.world.faults().clear();
  // A release does not end its process, and there may be no later call that does.
  if (stage.world.helperRunning()) stage.world.killHelper();
  if (stage.exited()) return false;
  checkAssertions(findings, stage.world);
  findings.expect(stage.mac().power.assertions().empty(), "an assertion is left without a helper");
  return true;
}

void recoverWithClient(Stage& stage, Findings& findings) {
  const Leftovers left = leftoversOn(stage.world);
  healMachine(stage.mac());
  startAgain(stage);
  virtualmac::AppClient& app = stage.join();
  checkHardwareFollowsRecord(findings, stage, left);
  const auto record = recordOnDisk(stage.mac());
  if (!findings.expect(record.has_value(), "no record after recovery")) return;
  const bool armed = record->lastWriteAt != korvel::Date::distantPast();
  const auto caps = app.capabilityRecord();
  findings.expect(caps == trueCapabilities(stage.mac()), "the capabilities are reported wrongly");
  if (armed && caps && caps->canControlCharging()) {
    findings.expect(gateSettles(stage.world, {record->chargeLimit}), "the gate is wrong");
  } else {
    stage.world.runFor(10);
    findings.expect(chargingPaused(stage.mac()) == left.chargingPaused,
                    "the gate moved without a limit");
  }
  const auto told = app.state();
  findings.expect(told.has_value(), "the state is not told");
  findings.expect(told && told->chargeLimit == record->chargeLimit, "another limit is told");
}

void killAndRecover(Stage& stage, Findings& findings, std::uint64_t k, std::string_view how) {
  if (!playUntilKilled(stage, k, findings)) return;
  // Before the helper's first write the file is still the story's own.
  if (!stage.world.journal().text("disk").empty()) checkStateFile(findings, stage.mac());
  if (how == withClient) {
    recoverWithClient(stage, findings);
  } else {
    recoverAlone(stage, findings);
  }
  checkStateFile(findings, stage.mac());
  checkAssertions(findings, stage.world);
  checkIdleProcess(findings, stage.world);
  checkConduct(findings, stage.world, stage.invariants);
}

class KillSweep : public StoryTest {};

TEST_P(KillSweep, RecoversFromAKillAtEveryCall) {
  const Trace trace = traceStory(GetParam());
  Sweep sweep(GetParam(), "*KillSweep.*");
  for (const std::uint64_t k : chosenCalls(trace.calls.size(), 60)) {
    for (const std::string_view how : {alone, withClient}) {
      sweep.run({k, std::string(how)},
                [&](Stage& stage, Findings& findings) { killAndRecover(stage, findings, k, how); });
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Stories, KillSweep, testing::ValuesIn(stories()), storyName);

}  // namespace

}  // namespace sweeps
