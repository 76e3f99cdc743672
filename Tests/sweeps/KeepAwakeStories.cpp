#include "Tests/sweeps/StoryTools.h"

namespace sweeps {

namespace {

bool sleepDisabled(Stage& stage) { return stage.mac().power.sleepDisabled(); }

void armAndDisarm(Stage& stage) {
  beginWithLimit(stage, 80);
  stage.expect(stage.ask(stage.app().setClamshellKeepAwake(true)), "keep-awake is armed");
  stage.expect(sleepDisabled(stage), "SleepDisabled is on");
  stage.expect(stage.ask(stage.app().setClamshellKeepAwake(true)), "and armed again");
  stage.run(1);
  stage.expect(stage.ask(stage.app().setClamshellKeepAwake(false)), "it is disarmed");
  stage.expect(!sleepDisabled(stage), "SleepDisabled is off");
  stage.run(1);
}

void armWhatAnotherProgramSet(Stage& stage) {
  beginWithLimit(stage, 80);
  stage.expect(stage.ask(stage.app().setClamshellKeepAwake(true)), "keep-awake is armed");
  stage.run(1);
  stage.expect(stage.ask(stage.app().setClamshellKeepAwake(false)), "it is disarmed");
  stage.expect(sleepDisabled(stage), "the other program's setting stays");
}

void lidClosedDischargeToTheLimit(Stage& stage) {
  beginLidClosedDischarge(stage, 80);
  stage.until([&] { return stoppedFor(stage, "targetReached"); }, 30, "the limit is reached");
  stage.expect(!sleepDisabled(stage), "SleepDisabled is off");
  stage.run(5);
  stage.expect(stage.mac().power.isAsleep(), "the lid is closed, so the Mac sleeps now");
  stage.mac().lid.open();
  stage.run(6);
}

void lidClosedDischargeTooLong(Stage& stage) {
  beginLidClosedDischarge(stage, 80);
  const korvel::Date now = stage.mac().wallClock();
  stage.mac().setWallClock({now.secondsSinceReference + 3600});
  stage.until([&] { return stoppedFor(stage, "clamshellTimeout"); }, 10, "the hour is over");
  stage.expect(!sleepDisabled(stage), "SleepDisabled is off");
  stage.mac().lid.open();
  stage.run(6);
}

void lidClosedDischargeTooHot(Stage& stage) {
  beginLidClosedDischarge(stage, 80);
  stage.mac().battery.overrideTemperatureCelsius(46);
  stage.until([&] { return stoppedFor(stage, "clamshellOverheated"); }, 10, "it gets too hot");
  stage.expect(!sleepDisabled(stage), "SleepDisabled is off");
  stage.mac().lid.open();
  stage.run(6);
}

void disarmUnderAClosedLid(Stage& stage) {
  beginLidClosedDischarge(stage, 80);
  stage.expect(stage.ask(stage.app().setClamshellKeepAwake(false)), "it is disarmed");
  stage.expect(stoppedFor(stage, "clamshellDisarmed"), "the discharge stops with it");
  stage.mac().lid.open();
  stage.run(6);
}

void disarmUnderAnOpenLid(Stage& stage) {
  beginLidClosedDischarge(stage, 80);
  stage.mac().lid.open();
  stage.run(6);
  stage.expect(stage.ask(stage.app().setClamshellKeepAwake(false)), "it is disarmed");
  stage.run(6);
  stage.expect(stage.mac().smc.inflowInhibited(), "the discharge goes on");
  stage.expect(stage.ask(stage.app().forceDischarge(false)), "until it is stopped");
  stage.run(1);
}

void lidClosedDischargeLeftAlone(Stage& stage) {
  beginLidClosedDischarge(stage, 80);
  stage.app().disconnect();
  stage.run(31);
  stage.expect(stage.mac().smc.inflowInhibited(), "the discharge goes on unattended");
  stage.mac().lid.open();
  stage.run(1);
}

void armedAndLeftAlone(Stage& stage) {
  stage.join();
  stage.expect(stage.ask(stage.app().setClamshellKeepAwake(true)), "keep-awake is armed");
  stage.app().disconnect();
  stage.run(31);
  stage.expect(!sleepDisabled(stage), "SleepDisabled is off");
}

}  // namespace

std::vector<Story> keepAwakeStories() {
  const std::string newer(newerKeysProfile);
  const MachineSetup alreadyDisabled = [](virtualmac::Machine& mac) {
    mac.battery.setPercent(90);
    mac.power.setSleepDisabledExternally(true);
  };
  return {
      {"armAndDisarm", newer, batteryAt(90), armAndDisarm},
      {"armWhatAnotherProgramSet", newer, alreadyDisabled, armWhatAnotherProgramSet},
      {"lidClosedDischargeToTheLimit", newer, batteryAt(81 - 0.47), lidClosedDischargeToTheLimit},
      {"lidClosedDischargeTooLong", newer, batteryAt(90), lidClosedDischargeTooLong},
      {"lidClosedDischargeTooHot", newer, batteryAt(90), lidClosedDischargeTooHot},
      {"disarmUnderAClosedLid", newer, batteryAt(90), disarmUnderAClosedLid},
      {"disarmUnderAnOpenLid", newer, batteryAt(90), disarmUnderAnOpenLid},
      {"lidClosedDischargeLeftAlone", newer, batteryAt(90), lidClosedDischargeLeftAlone},
      {"armedAndLeftAlone", newer, batteryAt(90), armedAndLeftAlone},
  };
}

}  // namespace sweeps
