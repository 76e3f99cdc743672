#include "Tests/sweeps/StoryTools.h"

namespace sweeps {

namespace {

void expectStop(Stage& stage, std::string_view reason, double limitSeconds = 12) {
  stage.until([&] { return stoppedFor(stage, reason); }, limitSeconds,
              "the discharge stops by itself: " + std::string(reason));
  stage.expect(!stage.mac().smc.inflowInhibited(), "the adapter's inflow is back");
  stage.run(6);
}

void dischargeToTheLimit(Stage& stage) {
  beginDischarge(stage, 80);
  expectStop(stage, "targetReached", 30);
  stage.expect(stage.mac().smc.chargingInhibited(), "the limit holds afterwards");
}

void dischargeToTheFloor(Stage& stage) {
  beginDischarge(stage, 20);
  expectStop(stage, "floorReached", 30);
}

void dischargeUntilTheLidCloses(Stage& stage) {
  beginDischarge(stage, 80, 6);
  stage.mac().lid.close();
  expectStop(stage, "lidClosed");
}

void dischargeUntilTheChargeIsUnreadable(Stage& stage) {
  beginDischarge(stage, 80, 6);
  stage.mac().powerSources.snapshotFails = true;
  expectStop(stage, "floorReached", 20);
  stage.mac().powerSources.snapshotFails = false;
  stage.run(6);
}

void dischargeUntilTheInhibitIsLost(Stage& stage) {
  beginDischarge(stage, 80, 6);
  stage.mac().adapter.renegotiate();
  stage.mac().battery.setPercent(93);
  expectStop(stage, "chargeInhibitLost");
}

void dischargeStoppedByHand(Stage& stage) {
  beginDischarge(stage, 80, 6);
  stage.expect(stage.ask(stage.app().forceDischarge(false)), "the discharge is stopped");
  stage.expect(!stage.mac().smc.inflowInhibited(), "the adapter's inflow is back");
  stage.expect(stage.mac().smc.chargingInhibited(), "charging is paused at once");
  stage.run(6);
}

void dischargeCleared(Stage& stage) {
  beginDischarge(stage, 80);
  stage.expect(stage.ask(stage.app().clearChargeLimit()), "the limit is cleared");
  stage.expect(!stage.mac().smc.inflowInhibited(), "the adapter's inflow is back");
  stage.run(6);
}

void dischargeEndsTheTopOff(Stage& stage) {
  beginTopOff(stage, 80);
  stage.run(1);
  stage.expect(stage.ask(stage.app().forceDischarge(true)), "the discharge starts");
  stage.run(6);
  stage.expect(stage.world.logCount("top-off restore loop superseded — bailing") == 1,
               "the top-off stands down");
  stage.expect(stage.ask(stage.app().forceDischarge(false)), "the discharge is stopped");
  stage.run(1);
}

void topOffEndsTheDischarge(Stage& stage) {
  beginDischarge(stage, 80, 1);
  stage.expect(stage.ask(stage.app().releaseLimitUntilFullThenRestore()), "the top-off starts");
  stage.expect(!stage.mac().smc.inflowInhibited(), "the adapter's inflow is back");
  stage.run(6);
}

void resetWhileDischarging(Stage& stage) {
  beginDischarge(stage, 80, 1);
  stage.expect(stage.ask(stage.app().resetAllSMCKeys()), "the keys are reset");
  stage.expect(!stage.mac().smc.inflowInhibited(), "the adapter's inflow is back");
  stage.expect(!stage.mac().smc.chargingInhibited(), "charging is back");
  stage.run(6);
}

void dischargeLeftAlone(Stage& stage) {
  beginDischarge(stage, 80);
  stage.app().disconnect();
  stage.run(31);
  stage.expect(!stage.mac().smc.inflowInhibited(), "the adapter's inflow is back");
  stage.expect(!stage.mac().smc.chargingInhibited(), "charging is back");
}

void sleepWhileDischarging(Stage& stage) {
  beginDischarge(stage, 80, 6);
  stage.mac().lid.close();
  stage.run(5);
  stage.expect(stoppedFor(stage, "systemWillSleep"), "the discharge stops before sleep");
  stage.expect(stage.mac().power.isAsleep(), "the Mac sleeps");
  stage.expect(stage.mac().smc.chargingInhibited(), "charging is paused before sleep");
  stage.run(60);
  stage.mac().lid.open();
  stage.run(6);
  stage.expect(!stage.mac().power.isAsleep(), "the Mac is awake again");
}

}  // namespace

std::vector<Story> dischargeStories() {
  const std::string newer(newerKeysProfile);
  const MachineSetup withDisplay = [](virtualmac::Machine& mac) {
    mac.battery.setPercent(90);
    // The display keeps the Mac awake under a closed lid, so the lid rule comes before sleep.
    mac.lid.connectDisplay();
  };
  return {
      {"dischargeToTheLimit", newer, batteryAt(justAbove(81)), dischargeToTheLimit},
      {"dischargeToTheFloor", newer, batteryAt(justAbove(21)), dischargeToTheFloor},
      {"dischargeUntilTheLidCloses", newer, withDisplay, dischargeUntilTheLidCloses},
      {"dischargeUntilTheChargeIsUnreadable", newer, batteryAt(90),
       dischargeUntilTheChargeIsUnreadable},
      {"dischargeUntilTheInhibitIsLost", newer, batteryAt(90), dischargeUntilTheInhibitIsLost},
      {"dischargeStoppedByHand", newer, batteryAt(90), dischargeStoppedByHand},
      {"dischargeCleared", newer, batteryAt(90), dischargeCleared},
      {"dischargeEndsTheTopOff", newer, batteryAt(90), dischargeEndsTheTopOff},
      {"topOffEndsTheDischarge", newer, batteryAt(90), topOffEndsTheDischarge},
      {"resetWhileDischarging", newer, batteryAt(90), resetWhileDischarging},
      {"dischargeLeftAlone", newer, batteryAt(90), dischargeLeftAlone},
      {"sleepWhileDischarging", newer, batteryAt(90), sleepWhileDischarging},
  };
}

}  // namespace sweeps
