#include <gtest/gtest.h>

#include <csignal>

#include "HelperPersistence.h"
#include "Tests/sweeps/Checks.h"
#include "Tests/sweeps/StoryTools.h"

/// What the order of the helper's steps leaves open, and what it leaves behind. Each of these is a
/// decision; a test that fails here means that the decision was changed.
namespace sweeps {

namespace {

using virtualmac::SeamCall;

Story at(double percent) {
  return {"orderWindow", std::string(newerKeysProfile), batteryAt(percent), {}};
}

class OrderWindows : public testing::Test {
 protected:
  void begin(Stage& stage) {
    stage.world.startHelper();
    stage.run(0.1);
  }

  /// Kills the helper in place of its next platform call after `reached` holds.
  void killOnce(Stage& stage, std::function<bool()> reached) {
    stage.world.faults().observe([&stage, reached = std::move(reached)](SeamCall) {
      if (reached()) stage.world.faults().killAtCall(stage.world.callCounts().total);
    });
  }

  /// A discharge whose keys are written and whose flag is not.
  void killBetweenKeysAndFlag(Stage& stage) {
    begin(stage);
    beginWithLimit(stage, 60);
    killOnce(stage, [&stage] { return stage.mac().smc.inflowInhibited(); });
    EXPECT_THROW(stage.ask(stage.app().forceDischarge(true)), HelperDied);
    stage.world.faults().observe({});
    stage.world.faults().clear();
    EXPECT_TRUE(stage.mac().smc.inflowInhibited());
    const auto record = recordOnDisk(stage.mac());
    EXPECT_TRUE(record && !record->forceDischargeActive);
  }

  void startAgain(Stage& stage) {
    stage.world.startHelper();
    stage.world.runFor(1);
  }
};

TEST_F(OrderWindows, AKillBetweenDischargeKeysAndFlagLeavesTheInflowInhibitedOverTheNextStart) {
  const Story story = at(90);
  Stage stage(story);
  killBetweenKeysAndFlag(stage);
  startAgain(stage);
  EXPECT_TRUE(stage.mac().smc.inflowInhibited());
  stage.world.runFor(3600);
  EXPECT_LT(stage.mac().battery.percent(), 90) << "the battery drains on the adapter";
}

TEST_F(OrderWindows, TheInflowLeftInhibitedEndsWithTheNextContractOfTheAdapter) {
  const Story story = at(90);
  Stage stage(story);
  killBetweenKeysAndFlag(stage);
  startAgain(stage);
  stage.mac().adapter.renegotiate();
  stage.world.runFor(1);
  EXPECT_FALSE(stage.mac().smc.inflowInhibited());
}

TEST_F(OrderWindows, TheInflowLeftInhibitedEndsWithAnyCommandThatEndsADischarge) {
  const Story story = at(90);
  const std::vector<virtualmac::AppCallRef (*)(virtualmac::AppClient&)> commands{
      [](virtualmac::AppClient& app) { return app.forceDischarge(false); },
      [](virtualmac::AppClient& app) { return app.clearChargeLimit(); },
      [](virtualmac::AppClient& app) { return app.releaseLimitUntilFullThenRestore(); },
      [](virtualmac::AppClient& app) { return app.resetAllSMCKeys(); },
  };
  for (const auto& command : commands) {
    Stage stage(story);
    killBetweenKeysAndFlag(stage);
    startAgain(stage);
    stage.join();
    EXPECT_TRUE(stage.mac().smc.inflowInhibited()) << "connecting alone does not end it";
    EXPECT_TRUE(stage.ask(command(stage.app())));
    EXPECT_FALSE(stage.mac().smc.inflowInhibited());
  }
}

TEST_F(OrderWindows, TheInflowLeftInhibitedEndsWithAnOrderlyShutdown) {
  const Story story = at(90);
  Stage stage(story);
  killBetweenKeysAndFlag(stage);
  startAgain(stage);
  stage.world.sendSignal(SIGTERM);
  stage.world.runFor(1);
  EXPECT_EQ(stage.world.exitStatus(), 0);
  EXPECT_FALSE(stage.mac().smc.inflowInhibited());
}

TEST_F(OrderWindows, AFailedRenameWhileArmingKeepAwakeLeavesSleepDisabledWithoutAnOwner) {
  const Story story = at(90);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 60);
  stage.mac().disk.replaceFails = true;
  EXPECT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(true)));
  EXPECT_TRUE(stage.mac().power.sleepDisabled());
  const auto told = stage.state();
  EXPECT_TRUE(told && !told->sleepDisabledByKorvel);
  stage.mac().disk.replaceFails = false;
  EXPECT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(false)));
  EXPECT_TRUE(stage.mac().power.sleepDisabled());
  EXPECT_EQ(stage.world.logCount(
                "clamshell keep-awake DISARMED (SleepDisabled left as found — set externally)"),
            1U);
}

TEST_F(OrderWindows, AnArmingThatCouldNotBeRecordedOutlivesACrash) {
  const Story story = at(90);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 60);
  stage.mac().disk.full = true;
  EXPECT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(true)));
  stage.mac().disk.full = false;
  stage.world.killHelper();
  startAgain(stage);
  EXPECT_TRUE(stage.mac().power.sleepDisabled()) << "the next start knows of no claim";
}

TEST_F(OrderWindows, AFailedRenameWhileDisarmingKeepsTheClaimOfASettingThatIsOff) {
  const Story story = at(90);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 60);
  ASSERT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(true)));
  stage.mac().disk.replaceFails = true;
  EXPECT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(false)));
  stage.mac().disk.replaceFails = false;
  EXPECT_FALSE(stage.mac().power.sleepDisabled());
  const auto told = stage.state();
  EXPECT_TRUE(told && told->sleepDisabledByKorvel);
  // Whoever sets it now loses it to the next start.
  stage.mac().power.setSleepDisabledExternally(true);
  stage.world.killHelper();
  startAgain(stage);
  EXPECT_FALSE(stage.mac().power.sleepDisabled());
}

TEST_F(OrderWindows, AFailedRenameDuringRecoveryBringsTheRecordedDischargeBackWithoutItsKeys) {
  const Story story = at(90);
  Stage stage(story);
  begin(stage);
  beginDischarge(stage, 80);
  stage.world.killHelper();
  stage.mac().smc.setValue("CHTE", {0, 0, 0, 0});
  stage.mac().disk.replaceFails = true;
  startAgain(stage);
  stage.mac().disk.replaceFails = false;
  EXPECT_FALSE(stage.mac().smc.inflowInhibited()) << "the hardware is cleared";
  stage.join();
  const auto told = stage.state();
  EXPECT_TRUE(told && told->forceDischargeActive) << "the record says otherwise again";
  stage.run(60);
  EXPECT_FALSE(stage.mac().smc.chargingInhibited()) << "the watchdog runs, not the gate";
  stage.mac().battery.setPercent(94);
  stage.run(11);
  EXPECT_TRUE(stoppedFor(stage, "chargeInhibitLost"));
  EXPECT_TRUE(stage.mac().smc.chargingInhibited()) << "then the limit holds";
}

TEST_F(OrderWindows, ACrashWhilePausedKeepsChargingPausedUntilAClientComes) {
  const Story story = at(85);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 80);
  stage.run(6);
  ASSERT_TRUE(stage.mac().smc.chargingInhibited());
  stage.world.killHelper();
  startAgain(stage);
  stage.mac().battery.setPercent(40);
  stage.world.runFor(6 * 3600);
  EXPECT_TRUE(stage.mac().smc.chargingInhibited()) << "nobody came, so nobody decided";
  EXPECT_LE(stage.mac().battery.percent(), 40);
  stage.join();
  stage.run(6);
  EXPECT_FALSE(stage.mac().smc.chargingInhibited()) << "the saved limit is enforced again";
}

TEST_F(OrderWindows, RecoveryTriesToClearTheDischargeKeysOnlyOnce) {
  const Story story = at(90);
  Stage stage(story);
  begin(stage);
  beginDischarge(stage, 60);
  stage.world.killHelper();
  stage.mac().smc.key("CHIE")->writeResult = virtualmac::smcResultBadCommand;
  startAgain(stage);
  const auto record = recordOnDisk(stage.mac());
  EXPECT_TRUE(record && !record->forceDischargeActive) << "recorded as cleared all the same";
  EXPECT_TRUE(stage.mac().smc.inflowInhibited());
  stage.mac().smc.key("CHIE")->writeResult.reset();
  const std::uint64_t writes = stage.mac().smc.writeCount("CHIE");
  stage.world.killHelper();
  startAgain(stage);
  EXPECT_EQ(stage.mac().smc.writeCount("CHIE"), writes) << "the next start does not try again";
  EXPECT_TRUE(stage.mac().smc.inflowInhibited());
}

TEST_F(OrderWindows, RecoveryTriesToClearSleepDisabledOnlyOnce) {
  const Story story = at(90);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 60);
  ASSERT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(true)));
  stage.world.killHelper();
  stage.mac().power.settingRefusal = korvel::ioReturnNotPrivileged;
  startAgain(stage);
  const auto record = recordOnDisk(stage.mac());
  EXPECT_TRUE(record && !record->sleepDisabledByKorvel) << "recorded as cleared all the same";
  stage.mac().power.settingRefusal.reset();
  const std::uint64_t writes = stage.world.callCounts()[SeamCall::settingsSet];
  stage.world.killHelper();
  startAgain(stage);
  EXPECT_EQ(stage.world.callCounts()[SeamCall::settingsSet], writes)
      << "the next start does not try again";
  EXPECT_TRUE(stage.mac().power.sleepDisabled());
}

TEST_F(OrderWindows, ADisarmThatFailsGivesUpItsClaim) {
  const Story story = at(90);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 60);
  ASSERT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(true)));
  stage.mac().power.settingRefusal = korvel::ioReturnNotPrivileged;
  EXPECT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(false)));
  const auto record = recordOnDisk(stage.mac());
  EXPECT_TRUE(record && !record->sleepDisabledByKorvel);
  EXPECT_TRUE(stage.mac().power.sleepDisabled());
}

TEST_F(OrderWindows, SettingsThatCannotBeReadWhileArmingAreTakenForOff) {
  const Story story = at(90);
  Stage stage(story);
  stage.mac().power.setSleepDisabledExternally(true);
  begin(stage);
  beginWithLimit(stage, 60);
  stage.mac().power.settingsOverride = korvel::PropertyValue();
  EXPECT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(true)));
  stage.mac().power.settingsOverride.reset();
  EXPECT_TRUE(stage.ask(stage.app().setClamshellKeepAwake(false)));
  EXPECT_FALSE(stage.mac().power.sleepDisabled()) << "the other program's setting is cleared";
}

TEST_F(OrderWindows, ATopOffWhoseResumeFailsLeavesEnforcementStopped) {
  const Story story = at(85);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 80);
  stage.run(1);
  stage.mac().smc.key("CHTE")->writeResult = virtualmac::smcResultBadCommand;
  EXPECT_FALSE(stage.ask(stage.app().releaseLimitUntilFullThenRestore()));
  stage.mac().smc.key("CHTE")->writeResult.reset();
  stage.mac().battery.setPercent(40);
  stage.run(600);
  EXPECT_TRUE(stage.mac().smc.chargingInhibited()) << "no tick decides";
  EXPECT_TRUE(stage.setLimit(80));
  stage.run(1);
  EXPECT_FALSE(stage.mac().smc.chargingInhibited());
}

TEST_F(OrderWindows, AStopWhoseKeyWriteFailsLeavesTheInflowInhibited) {
  const Story story = at(justAbove(81));
  Stage stage(story);
  begin(stage);
  beginDischarge(stage, 80);
  stage.mac().smc.key("CHIE")->writeResult = virtualmac::smcResultBadCommand;
  stage.until([&] { return stoppedFor(stage, "targetReached"); }, 60, "the limit is reached");
  EXPECT_TRUE(stage.unmetExpectations().empty());
  stage.mac().smc.key("CHIE")->writeResult.reset();
  stage.run(60);
  const auto told = stage.state();
  EXPECT_TRUE(told && !told->forceDischargeActive);
  EXPECT_TRUE(stage.mac().smc.inflowInhibited()) << "a stop is tried once";
  EXPECT_TRUE(stage.ask(stage.app().forceDischarge(false)));
  EXPECT_FALSE(stage.mac().smc.inflowInhibited());
}

TEST_F(OrderWindows, ANewLimitWhoseRenameFailsIsEnforcedButNotRemembered) {
  const Story story = at(85);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 95);
  stage.run(1);
  stage.mac().disk.replaceFails = true;
  EXPECT_TRUE(stage.setLimit(80));
  stage.mac().disk.replaceFails = false;
  stage.run(6);
  EXPECT_TRUE(stage.mac().smc.chargingInhibited()) << "the loop holds the new limit";
  const auto told = stage.state();
  EXPECT_TRUE(told && told->chargeLimit == 95) << "the record is the old one";
  stage.sleepAndWake(10);
  stage.run(6);
  EXPECT_FALSE(stage.mac().smc.chargingInhibited()) << "after wake the recorded limit counts";
}

TEST_F(OrderWindows, AKeyThatTheProbeMissesIsNotUsedUntilTheNextStart) {
  const Story story = at(85);
  Stage stage(story);
  stage.mac().smc.key("CHTE")->result = std::uint8_t{1};
  begin(stage);
  stage.mac().smc.key("CHTE")->result.reset();
  stage.join();
  EXPECT_TRUE(stage.setLimit(80));
  stage.run(11);
  EXPECT_FALSE(stage.mac().smc.chargingInhibited());
  EXPECT_EQ(stage.world.logCount("charge enforcement pause:AppleSMC service unavailable — limit is "
                                 "NOT being applied"),
            1U);
  stage.expectExit();
  stage.app().quit();
  stage.run(1);
  startAgain(stage);
  stage.join();
  stage.run(6);
  EXPECT_TRUE(stage.mac().smc.chargingInhibited());
}

TEST_F(OrderWindows, WhatWasPausedThroughTheOtherKeysStaysPausedUntilAReset) {
  const Story story{"orderWindow", "both-families", batteryAt(85), {}};
  Stage stage(story);
  stage.mac().smc.key("CHTE")->result = std::uint8_t{1};
  begin(stage);
  stage.mac().smc.key("CHTE")->result.reset();
  beginWithLimit(stage, 80);
  stage.run(1);
  EXPECT_EQ(stage.mac().smc.value("CH0B"), std::vector<std::uint8_t>{2});
  stage.world.killHelper();
  startAgain(stage);  // This run sees the newer key and writes no other.
  stage.join();
  EXPECT_TRUE(stage.setLimit(100));
  stage.run(6);
  EXPECT_TRUE(stage.mac().smc.chargingInhibited());
  EXPECT_TRUE(stage.ask(stage.app().resetAllSMCKeys()));
  EXPECT_FALSE(stage.mac().smc.chargingInhibited());
}

TEST_F(OrderWindows, ShutdownLeavesAfterHalfASecondWhenTheHardwareHangs) {
  const Story story = at(85);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 80);
  stage.run(1);
  stage.world.faults().setLatency(SeamCall::smcCallStruct, 5);
  stage.run(4.5);  // The next tick is now inside a call that takes five seconds.
  const double asked = stage.world.now();
  stage.expectExit();
  stage.world.sendSignal(SIGTERM);
  stage.world.runUntil([&] { return !stage.world.helperRunning(); }, 10);
  EXPECT_EQ(stage.world.exitStatus(), 0);
  EXPECT_NEAR(stage.world.now() - asked, 0.5, 0.001);
  EXPECT_TRUE(stage.mac().smc.chargingInhibited()) << "what was not done by then is not done";
}

TEST_F(OrderWindows, SleepIsAcknowledgedAfterATenthOfASecondAndASlowerPauseStillLands) {
  const Story story = at(60);
  Stage stage(story);
  begin(stage);
  beginWithLimit(stage, 80);
  stage.run(1);
  ASSERT_FALSE(stage.mac().smc.chargingInhibited());
  // The pause is a read, a write and a read; the first of them takes too long.
  stage.world.faults().delayNth(SeamCall::smcCallStruct, 1, 0.15);
  const double asked = stage.world.now();
  stage.mac().power.requestSleep();
  stage.world.runUntil([&] { return stage.mac().power.isAsleep(); }, 10);
  EXPECT_NEAR(stage.world.now() - asked, 0.1, 0.001);
  EXPECT_FALSE(stage.mac().smc.chargingInhibited()) << "not yet";
  stage.world.runFor(600);
  EXPECT_FALSE(stage.mac().smc.chargingInhibited()) << "nothing runs while the Mac sleeps";
  stage.mac().power.wake();
  stage.world.runFor(0.06);
  EXPECT_EQ(stage.world.logCount("pre-sleep CHTE pause-write succeeded"), 1U);
}

}  // namespace

}  // namespace sweeps
