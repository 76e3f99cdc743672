#include <csignal>

#include "HelperPersistence.h"
#include "Tests/sweeps/StoryTools.h"

namespace sweeps {

namespace {

void expectExit(Stage& stage) {
  stage.run(1);
  stage.expect(stage.world.exitStatus() == 0, "the helper exits with status 0");
  stage.expect(!stage.mac().smc.chargingInhibited(), "charging is back");
  stage.expect(!stage.mac().smc.inflowInhibited(), "the adapter's inflow is back");
  stage.expect(!stage.mac().power.sleepDisabled(), "SleepDisabled is off");
}

void quitWhileHolding(Stage& stage) {
  beginWithLimit(stage, 80, 1);
  stage.expectExit();
  stage.app().quit();
  expectExit(stage);
}

void terminateWhileDischarging(Stage& stage) {
  beginDischarge(stage, 80, 1);
  stage.expectExit();
  stage.world.sendSignal(SIGTERM);
  expectExit(stage);
}

void interruptWhileToppingOff(Stage& stage) {
  beginTopOff(stage, 80);
  stage.expectExit();
  stage.world.sendSignal(SIGINT);
  expectExit(stage);
}

void abortWithTheLidClosed(Stage& stage) {
  beginLidClosedDischarge(stage, 80);
  stage.expectExit();
  stage.world.sendSignal(SIGABRT);
  expectExit(stage);
}

void clientLeaves(Stage& stage) {
  beginWithLimit(stage, 80);
  stage.app().disconnect();
  stage.run(29);
  stage.expect(stage.mac().smc.chargingInhibited(), "the limit holds for thirty seconds more");
  stage.run(2);
  stage.expect(!stage.mac().smc.chargingInhibited(), "then charging is back");
}

void clientReturnsInTime(Stage& stage) {
  beginWithLimit(stage, 80);
  stage.app().disconnect();
  stage.run(20);
  stage.join();
  stage.run(20);
  stage.expect(stage.mac().smc.chargingInhibited(), "nothing was interrupted");
}

void clientReturnsLate(Stage& stage) {
  beginWithLimit(stage, 80);
  stage.app().kill();
  stage.run(31);
  stage.join();
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "the saved limit holds again");
}

void sleepWhileHolding(Stage& stage) {
  beginWithLimit(stage, 80, 6);
  stage.sleepAndWake(60);
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "the limit holds after sleep");
}

void sleepWhileCharging(Stage& stage) {
  beginWithLimit(stage, 80, 1);
  stage.mac().power.requestSleep();
  stage.run(60);
  stage.expect(stage.mac().power.isAsleep(), "the Mac sleeps");
  stage.expect(stage.mac().smc.chargingInhibited(), "charging is paused before sleep");
  stage.mac().power.wake();
  stage.run(1);
  stage.expect(!stage.mac().smc.chargingInhibited(), "and resumes at once after it");
}

void sleepWhileToppingOff(Stage& stage) {
  beginTopOff(stage, 80);
  stage.sleepAndWake(60);
  stage.mac().battery.setPercent(100);
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "the limit holds again");
}

void bootAfterACrash(Stage& stage) {
  stage.expect(!stage.mac().smc.inflowInhibited(), "the adapter's inflow is back");
  stage.expect(!stage.mac().power.sleepDisabled(), "SleepDisabled is off");
  stage.join();
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "the saved limit holds again");
}

void bootWithACorruptFile(Stage& stage) {
  stage.join();
  stage.run(6);
  stage.expect(!stage.mac().smc.chargingInhibited(), "nothing is enforced");
  stage.expect(stage.setLimit(70), "a limit is accepted");
  stage.run(1);
  stage.expect(stage.mac().smc.chargingInhibited(), "and holds");
}

void bootFromAnOlderFile(Stage& stage) {
  stage.join();
  stage.run(6);
  stage.expect(stage.mac().smc.chargingInhibited(), "the saved limit holds again");
}

void writeStateFile(virtualmac::Machine& mac, std::string content, std::uint32_t mode = 0700) {
  mac.disk.makeDirectory(korvel::HelperPersistence::directory, mode);
  mac.disk.writeFile(korvel::HelperPersistence::statePath, std::move(content), 0600);
}

void everyFlagSet(virtualmac::Machine& mac) {
  korvel::HelperState record;
  record.chargeLimit = 80;
  record.lastWriteAt = korvel::Date{700000000};
  record.forceDischargeActive = true;
  record.heatPauseActive = true;
  record.topUpActive = true;
  record.sleepDisabledByKorvel = true;
  record.lastDischargeAbortReason = "an old banner";
  record.lastDischargeAbortAt = korvel::Date{700000000};
  record.helperVersion = "1.4.0";
  writeStateFile(mac, korvel::encodeFile(record));
  mac.battery.setPercent(85);
  mac.smc.setValue("CHIE", {8});
  mac.power.setSleepDisabledExternally(true);
}

void olderFile(virtualmac::Machine& mac) {
  // An older helper may have left an open directory and a stale temporary file.
  writeStateFile(mac, R"({"chargeLimit": 75, "sailingBand": 5, "forceDischargeActive": false,
    "heatPauseActive": false, "lastWriteAt": "2024-01-01T00:00:00Z"})",
                 0755);
  mac.disk.writeFile(korvel::HelperPersistence::temporaryPath, "{", 0600);
  mac.battery.setPercent(85);
}

}  // namespace

std::vector<Story> lifeStories() {
  const std::string newer(newerKeysProfile);
  const MachineSetup corruptFile = [](virtualmac::Machine& mac) {
    writeStateFile(mac, R"({"chargeLimit": )");
    mac.battery.setPercent(85);
  };
  return {
      {"quitWhileHolding", newer, batteryAt(85), quitWhileHolding},
      {"terminateWhileDischarging", newer, batteryAt(90), terminateWhileDischarging},
      {"interruptWhileToppingOff", newer, batteryAt(90), interruptWhileToppingOff},
      {"abortWithTheLidClosed", newer, batteryAt(90), abortWithTheLidClosed},
      {"clientLeaves", newer, batteryAt(85), clientLeaves},
      {"clientReturnsInTime", newer, batteryAt(85), clientReturnsInTime},
      {"clientReturnsLate", newer, batteryAt(85), clientReturnsLate},
      {"sleepWhileHolding", newer, batteryAt(85), sleepWhileHolding},
      {"sleepWhileCharging", newer, batteryAt(60), sleepWhileCharging},
      {"sleepWhileToppingOff", newer, batteryAt(90), sleepWhileToppingOff},
      {"bootAfterACrash", newer, everyFlagSet, bootAfterACrash},
      {"bootWithACorruptFile", newer, corruptFile, bootWithACorruptFile},
      {"bootFromAnOlderFile", newer, olderFile, bootFromAnOlderFile},
  };
}

}  // namespace sweeps
