#include "Tests/sweeps/StoryTools.h"

namespace sweeps {

namespace {

void boot(Stage& stage) { stage.run(1); }

void holdTheLimit(Stage& stage) {
  beginWithLimit(stage, 80, 11);
  stage.expect(stage.mac().smc.chargingInhibited(), "charging is paused at the limit");
}

void chargeUpToTheLimit(Stage& stage) {
  beginWithLimit(stage, 80, 1);
  stage.expect(!stage.mac().smc.chargingInhibited(), "charging resumes below the band");
  stage.mac().battery.setPercent(80);
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "charging is paused at the limit");
}

void changeTheLimit(Stage& stage) {
  beginWithLimit(stage, 60, 6);
  stage.expect(stage.mac().smc.chargingInhibited(), "charging is paused above the first limit");
  stage.expect(stage.setLimit(90), "the second limit is accepted");
  stage.run(6);
  stage.expect(!stage.mac().smc.chargingInhibited(), "charging resumes below the second one");
}

void clearTheLimit(Stage& stage) {
  beginWithLimit(stage, 80, 6);
  stage.expect(stage.ask(stage.app().clearChargeLimit()), "the limit is cleared");
  stage.run(6);
  stage.expect(!stage.mac().smc.chargingInhibited(), "charging resumes");
}

void handBackAt100(Stage& stage) {
  beginWithLimit(stage, 80, 1);
  stage.expect(stage.setLimit(100), "no limit is accepted");
  stage.run(6);
  stage.expect(!stage.mac().smc.chargingInhibited(), "charging resumes");
  stage.expect(
      stage.world.logCount("100% target — returned charging to macOS and stopped enforcement") == 1,
      "enforcement ends by itself");
}

void topOffToFull(Stage& stage) {
  beginWithLimit(stage, 80, 1);
  stage.expect(stage.ask(stage.app().releaseLimitUntilFullThenRestore()), "the top-off starts");
  stage.expect(!stage.mac().smc.chargingInhibited(), "charging resumes");
  stage.until([&] { return stage.world.logCount("top-off complete — restored limit 80") == 1; }, 60,
              "the top-off ends when the battery is full");
  stage.run(1);
  stage.expect(stage.mac().smc.chargingInhibited(), "the limit holds again");
}

void cancelTheTopOff(Stage& stage) {
  beginWithLimit(stage, 80, 1);
  stage.expect(stage.ask(stage.app().releaseLimitUntilFullThenRestore()), "the top-off starts");
  stage.run(6);
  stage.expect(stage.ask(stage.app().cancelTopUp()), "it is cancelled");
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "the limit holds again");
}

void topOffTwice(Stage& stage) {
  beginTopOff(stage, 80);
  stage.run(6);
  stage.expect(stage.ask(stage.app().releaseLimitUntilFullThenRestore()), "and starts anew");
  stage.mac().battery.setPercent(100);
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "the limit holds again");
}

void twoClients(Stage& stage) {
  beginWithLimit(stage, 80);
  stage.join();
  stage.expect(stage.setLimit(70), "the other client changes the limit");
  stage.clients.front()->disconnect();
  stage.run(6);
  stage.expect(stage.setLimit(85), "and changes it again");
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "the last limit holds");
}

}  // namespace

std::vector<Story> limitStories() {
  const MachineSetup chargingPaused = [](virtualmac::Machine& mac) {
    mac.battery.setPercent(60);
    mac.smc.setValue("CHTE", {1, 0, 0, 0});
  };
  return {
      {"boot", std::string(newerKeysProfile), batteryAt(60), boot},
      {"holdTheLimit", std::string(newerKeysProfile), batteryAt(80), holdTheLimit},
      {"chargeUpToTheLimit", std::string(newerKeysProfile), chargingPaused, chargeUpToTheLimit},
      {"changeTheLimit", std::string(newerKeysProfile), batteryAt(70), changeTheLimit},
      {"clearTheLimit", std::string(newerKeysProfile), batteryAt(85), clearTheLimit},
      {"handBackAt100", std::string(newerKeysProfile), batteryAt(85), handBackAt100},
      {"topOffToFull", std::string(newerKeysProfile), batteryAt(justBelowNext(99)), topOffToFull},
      {"cancelTheTopOff", std::string(newerKeysProfile), batteryAt(90), cancelTheTopOff},
      {"topOffTwice", std::string(newerKeysProfile), batteryAt(90), topOffTwice},
      {"twoClients", std::string(newerKeysProfile), batteryAt(90), twoClients},
  };
}

}  // namespace sweeps
