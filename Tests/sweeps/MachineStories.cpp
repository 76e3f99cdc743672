#include "Tests/sweeps/StoryTools.h"

namespace sweeps {

namespace {

void olderPairHolds(Stage& stage) {
  beginWithLimit(stage, 80, 6);
  stage.expect(stage.mac().smc.chargingInhibited(), "charging is paused at the limit");
  stage.expect(stage.ask(stage.app().clearChargeLimit()), "the limit is cleared");
  stage.expect(!stage.mac().smc.chargingInhibited(), "charging is back");
}

void olderPairDischarges(Stage& stage) {
  beginDischarge(stage, 80);
  stage.until([&] { return stoppedFor(stage, "targetReached"); }, 30, "the limit is reached");
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "the limit holds afterwards");
}

void olderPairResets(Stage& stage) {
  beginDischarge(stage, 80);
  stage.expect(stage.ask(stage.app().resetAllSMCKeys()), "the keys are reset");
  stage.expect(!stage.mac().smc.inflowInhibited(), "the adapter's inflow is back");
  stage.run(1);
}

void nativeLimitHolds(Stage& stage) {
  beginWithLimit(stage, 80, 6);
  stage.expect(stage.mac().powerUI.currentLimit() == 80, "the system has the limit");
  stage.expect(stage.setLimit(90), "another limit is accepted");
  stage.run(6);
  stage.expect(stage.ask(stage.app().clearChargeLimit()), "the limit is cleared");
  stage.expect(stage.mac().powerUI.currentLimit() == 0, "the system has none");
  stage.run(1);
}

void nativeLimitIsReset(Stage& stage) {
  beginWithLimit(stage, 80, 1);
  stage.expect(stage.ask(stage.app().resetAllSMCKeys()), "everything is reset");
  stage.expect(stage.mac().powerUI.currentLimit() == 0, "the system has none");
  stage.expectExit();
  stage.app().quit();
  stage.run(1);
}

void nothingToControl(Stage& stage) {
  beginWithLimit(stage, 80, 6);
  stage.expect(!stage.ask(stage.app().forceDischarge(true)), "no discharge is possible");
  stage.expect(!stage.ask(stage.app().clearChargeLimit()), "the resume is reported as failed");
  stage.expect(stage.ask(stage.app().resetAllSMCKeys()), "a reset finds nothing to do");
  stage.run(1);
}

}  // namespace

std::vector<Story> machineStories() {
  const std::string older(olderPairProfile);
  const std::string native(nativeProfile);
  const std::string none(noControlProfile);
  return {
      {"olderPairHolds", older, batteryAt(85), olderPairHolds},
      {"olderPairDischarges", older, batteryAt(justAbove(81)), olderPairDischarges},
      {"olderPairResets", older, batteryAt(90), olderPairResets},
      {"nativeLimitHolds", native, batteryAt(85), nativeLimitHolds},
      {"nativeLimitIsReset", native, batteryAt(85), nativeLimitIsReset},
      {"nothingToControl", none, batteryAt(85), nothingToControl},
  };
}

}  // namespace sweeps
