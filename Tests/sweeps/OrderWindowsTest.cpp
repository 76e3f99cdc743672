#include <gtest/gtest.h>

#include <csignal>
#include <optional>

#include "Tests/sweeps/Checks.h"
#include "Tests/sweeps/StoryTools.h"

/// The windows that the order of the helper's steps leaves open, and their traces. Each of these is
/// a decision; a test that fails here means that the decision was changed.
namespace sweeps {

namespace {

using virtualmac::SeamCall;

class OrderWindows : public testing::Test {
 protected:
  /// A machine whose helper has not started yet.
  void setUp(double percent, std::string_view profile = newerKeysProfile) {
    stage.reset();
    story = {"orderWindow", std::string(profile), batteryAt(percent), {}};
    stage.emplace(story);
  }
  void startFirst() {
    world().startHelper();
    stage->run(0.1);
  }
  /// A running helper, and a client that asked for the limit.
  void begin(double percent, std::uint8_t limit) {
    setUp(percent);
    startFirst();
    beginWithLimit(*stage, limit);
  }
  void beginArmed() {
    begin(90, 60);
    ASSERT_TRUE(keepAwake(true));
  }
  void beginDischarging(double percent, std::uint8_t limit) {
    begin(percent, limit);
    EXPECT_TRUE(stage->ask(app().forceDischarge(true)));
    EXPECT_TRUE(smc().inflowInhibited());
  }
  /// The next helper, after one whose discharge had its keys written and its flag not.
  void beginAfterKillBetweenKeysAndFlag() {
    begin(90, 60);
    world().faults().observe([this](SeamCall) {
      if (smc().inflowInhibited()) world().faults().killAtCall(world().callCounts().total);
    });
    EXPECT_THROW(stage->ask(app().forceDischarge(true)), HelperDied);
    world().faults().observe({});
    world().faults().clear();
    EXPECT_TRUE(smc().inflowInhibited());
    EXPECT_FALSE(recorded().forceDischargeActive);
    startAgain();
  }
  void startAgain() {
    world().startHelper();
    world().runFor(1);
  }
  void killAndStartAgain() {
    world().killHelper();
    startAgain();
  }

  bool keepAwake(bool armed) { return stage->ask(app().setClamshellKeepAwake(armed)); }
  void refuseWritesOf(std::string_view key) {
    smc().key(key)->writeResult = virtualmac::smcResultBadCommand;
  }
  void allowWritesOf(std::string_view key) { smc().key(key)->writeResult.reset(); }
  /// The record as the helper tells it, and as it is on the disk; there must be one.
  korvel::HelperState told() { return stage->state().value(); }
  korvel::HelperState recorded() { return recordOnDisk(stage->mac()).value(); }

  virtualmac::World& world() { return stage->world; }
  virtualmac::AppClient& app() { return stage->app(); }
  virtualmac::SMC& smc() { return stage->mac().smc; }
  virtualmac::Battery& battery() { return stage->mac().battery; }
  virtualmac::PowerManagement& power() { return stage->mac().power; }
  virtualmac::Disk& disk() { return stage->mac().disk; }

  Story story;
  std::optional<Stage> stage;
};

TEST_F(OrderWindows, AKillBetweenDischargeKeysAndFlagLeavesTheInflowInhibitedOverTheNextStart) {
  beginAfterKillBetweenKeysAndFlag();
  EXPECT_TRUE(smc().inflowInhibited());
  world().runFor(3600);
  EXPECT_LT(battery().percent(), 90) << "the battery drains on the adapter";
}

TEST_F(OrderWindows, TheInflowLeftInhibitedEndsWithTheNextContractOfTheAdapter) {
  beginAfterKillBetweenKeysAndFlag();
  stage->mac().adapter.renegotiate();
  world().runFor(1);
  EXPECT_FALSE(smc().inflowInhibited());
}

TEST_F(OrderWindows, TheInflowLeftInhibitedEndsWithAnyCommandThatEndsADischarge) {
  const std::vector<virtualmac::AppCallRef (*)(virtualmac::AppClient&)> commands{
      [](virtualmac::AppClient& app) { return app.forceDischarge(false); },
      [](virtualmac::AppClient& app) { return app.clearChargeLimit(); },
      [](virtualmac::AppClient& app) { return app.releaseLimitUntilFullThenRestore(); },
      [](virtualmac::AppClient& app) { return app.resetAllSMCKeys(); },
  };
  for (const auto& command : commands) {
    beginAfterKillBetweenKeysAndFlag();
    stage->join();
    EXPECT_TRUE(smc().inflowInhibited()) << "connecting alone does not end it";
    EXPECT_TRUE(stage->ask(command(app())));
    EXPECT_FALSE(smc().inflowInhibited());
  }
}

TEST_F(OrderWindows, TheInflowLeftInhibitedEndsWithAnOrderlyShutdown) {
  beginAfterKillBetweenKeysAndFlag();
  world().sendSignal(SIGTERM);
  world().runFor(1);
  EXPECT_EQ(world().exitStatus(), 0);
  EXPECT_FALSE(smc().inflowInhibited());
}

TEST_F(OrderWindows, AFailedRenameWhileArmingKeepAwakeLeavesSleepDisabledWithoutAnOwner) {
  begin(90, 60);
  disk().replaceFails = true;
  EXPECT_TRUE(keepAwake(true));
  EXPECT_TRUE(power().sleepDisabled());
  EXPECT_FALSE(told().sleepDisabledByKorvel);
  disk().replaceFails = false;
  EXPECT_TRUE(keepAwake(false));
  EXPECT_TRUE(power().sleepDisabled());
  EXPECT_EQ(world().logCount(
                "clamshell keep-awake DISARMED (SleepDisabled left as found — set externally)"),
            1U);
}

TEST_F(OrderWindows, AnArmingThatCouldNotBeRecordedOutlivesACrash) {
  begin(90, 60);
  disk().full = true;
  EXPECT_TRUE(keepAwake(true));
  disk().full = false;
  killAndStartAgain();
  EXPECT_TRUE(power().sleepDisabled()) << "the next start knows of no claim";
}

TEST_F(OrderWindows, AFailedRenameWhileDisarmingKeepsTheClaimOfASettingThatIsOff) {
  beginArmed();
  disk().replaceFails = true;
  EXPECT_TRUE(keepAwake(false));
  disk().replaceFails = false;
  EXPECT_FALSE(power().sleepDisabled());
  EXPECT_TRUE(told().sleepDisabledByKorvel);
  // A program that sets it now loses it to the next start.
  power().setSleepDisabledExternally(true);
  killAndStartAgain();
  EXPECT_FALSE(power().sleepDisabled());
}

TEST_F(OrderWindows, AFailedRenameDuringRecoveryBringsTheRecordedDischargeBackWithoutItsKeys) {
  beginDischarging(90, 80);
  world().killHelper();
  smc().setValue("CHTE", {0, 0, 0, 0});
  disk().replaceFails = true;
  startAgain();
  disk().replaceFails = false;
  EXPECT_FALSE(smc().inflowInhibited()) << "the hardware is cleared";
  stage->join();
  EXPECT_TRUE(told().forceDischargeActive) << "the record says otherwise again";
  stage->run(60);
  EXPECT_FALSE(smc().chargingInhibited()) << "the watchdog runs, not the gate";
  battery().setPercent(94);
  stage->run(11);
  EXPECT_TRUE(stoppedFor(*stage, "chargeInhibitLost"));
  EXPECT_TRUE(smc().chargingInhibited()) << "then the limit holds";
}

TEST_F(OrderWindows, ACrashWhilePausedKeepsChargingPausedUntilAClientComes) {
  begin(85, 80);
  stage->run(6);
  ASSERT_TRUE(smc().chargingInhibited());
  killAndStartAgain();
  battery().setPercent(40);
  world().runFor(6 * 3600);
  EXPECT_TRUE(smc().chargingInhibited()) << "nobody came, so nobody decided";
  EXPECT_LE(battery().percent(), 40);
  stage->join();
  stage->run(6);
  EXPECT_FALSE(smc().chargingInhibited()) << "the saved limit is enforced again";
}

TEST_F(OrderWindows, RecoveryTriesToClearTheDischargeKeysOnlyOnce) {
  beginDischarging(90, 60);
  world().killHelper();
  refuseWritesOf("CHIE");
  startAgain();
  EXPECT_FALSE(recorded().forceDischargeActive) << "recorded as cleared all the same";
  EXPECT_TRUE(smc().inflowInhibited());
  allowWritesOf("CHIE");
  const std::uint64_t writes = smc().writeCount("CHIE");
  killAndStartAgain();
  EXPECT_EQ(smc().writeCount("CHIE"), writes) << "the next start does not try again";
  EXPECT_TRUE(smc().inflowInhibited());
}

TEST_F(OrderWindows, RecoveryTriesToClearSleepDisabledOnlyOnce) {
  beginArmed();
  world().killHelper();
  power().settingRefusal = korvel::ioReturnNotPrivileged;
  startAgain();
  EXPECT_FALSE(recorded().sleepDisabledByKorvel) << "recorded as cleared all the same";
  power().settingRefusal.reset();
  const std::uint64_t writes = world().callCounts()[SeamCall::settingsSet];
  killAndStartAgain();
  EXPECT_EQ(world().callCounts()[SeamCall::settingsSet], writes)
      << "the next start does not try again";
  EXPECT_TRUE(power().sleepDisabled());
}

TEST_F(OrderWindows, ADisarmThatFailsGivesUpItsClaim) {
  beginArmed();
  power().settingRefusal = korvel::ioReturnNotPrivileged;
  EXPECT_TRUE(keepAwake(false));
  EXPECT_FALSE(recorded().sleepDisabledByKorvel);
  EXPECT_TRUE(power().sleepDisabled());
}

TEST_F(OrderWindows, SettingsThatCannotBeReadWhileArmingAreTakenForOff) {
  setUp(90);
  power().setSleepDisabledExternally(true);
  startFirst();
  beginWithLimit(*stage, 60);
  power().settingsOverride = korvel::PropertyValue();
  EXPECT_TRUE(keepAwake(true));
  power().settingsOverride.reset();
  EXPECT_TRUE(keepAwake(false));
  EXPECT_FALSE(power().sleepDisabled()) << "the other program's setting is cleared";
}

TEST_F(OrderWindows, ATopOffWhoseResumeFailsLeavesEnforcementStopped) {
  begin(85, 80);
  stage->run(1);
  refuseWritesOf("CHTE");
  EXPECT_FALSE(stage->ask(app().releaseLimitUntilFullThenRestore()));
  allowWritesOf("CHTE");
  battery().setPercent(40);
  stage->run(600);
  EXPECT_TRUE(smc().chargingInhibited()) << "no tick decides";
  EXPECT_TRUE(stage->setLimit(80));
  stage->run(1);
  EXPECT_FALSE(smc().chargingInhibited());
}

TEST_F(OrderWindows, AStopWhoseKeyWriteFailsLeavesTheInflowInhibited) {
  beginDischarging(justAbove(81), 80);
  refuseWritesOf("CHIE");
  stage->until([&] { return stoppedFor(*stage, "targetReached"); }, 60, "the limit is reached");
  EXPECT_TRUE(stage->unmetExpectations().empty());
  allowWritesOf("CHIE");
  stage->run(60);
  EXPECT_FALSE(told().forceDischargeActive);
  EXPECT_TRUE(smc().inflowInhibited()) << "a stop is tried once";
  EXPECT_TRUE(stage->ask(app().forceDischarge(false)));
  EXPECT_FALSE(smc().inflowInhibited());
}

TEST_F(OrderWindows, ANewLimitWhoseRenameFailsIsEnforcedButNotRemembered) {
  begin(85, 95);
  stage->run(1);
  disk().replaceFails = true;
  EXPECT_TRUE(stage->setLimit(80));
  disk().replaceFails = false;
  stage->run(6);
  EXPECT_TRUE(smc().chargingInhibited()) << "the loop holds the new limit";
  EXPECT_EQ(told().chargeLimit, 95) << "the record is the old one";
  stage->sleepAndWake(10);
  stage->run(6);
  EXPECT_FALSE(smc().chargingInhibited()) << "after wake the recorded limit counts";
}

TEST_F(OrderWindows, AKeyThatTheProbeMissesIsNotUsedUntilTheNextStart) {
  setUp(85);
  smc().key("CHTE")->result = std::uint8_t{1};
  startFirst();
  smc().key("CHTE")->result.reset();
  stage->join();
  EXPECT_TRUE(stage->setLimit(80));
  stage->run(11);
  EXPECT_FALSE(smc().chargingInhibited());
  EXPECT_EQ(world().logCount("charge enforcement pause:AppleSMC service unavailable — limit is "
                             "NOT being applied"),
            1U);
  stage->expectExit();
  app().quit();
  stage->run(1);
  startAgain();
  stage->join();
  stage->run(6);
  EXPECT_TRUE(smc().chargingInhibited());
}

TEST_F(OrderWindows, WhatWasPausedThroughTheOtherKeysStaysPausedUntilAReset) {
  setUp(85, "both-families");
  smc().key("CHTE")->result = std::uint8_t{1};
  startFirst();
  smc().key("CHTE")->result.reset();
  beginWithLimit(*stage, 80);
  stage->run(1);
  EXPECT_EQ(smc().value("CH0B"), std::vector<std::uint8_t>{2});
  killAndStartAgain();  // This run sees the newer key and writes no other.
  stage->join();
  EXPECT_TRUE(stage->setLimit(100));
  stage->run(6);
  EXPECT_TRUE(smc().chargingInhibited());
  EXPECT_TRUE(stage->ask(app().resetAllSMCKeys()));
  EXPECT_FALSE(smc().chargingInhibited());
}

TEST_F(OrderWindows, ShutdownLeavesAfterHalfASecondWhenTheHardwareHangs) {
  begin(85, 80);
  stage->run(1);
  world().faults().setLatency(SeamCall::smcCallStruct, 5);
  stage->run(4.5);  // The next tick is now inside a call that takes five seconds.
  const double asked = world().now();
  stage->expectExit();
  world().sendSignal(SIGTERM);
  world().runUntil([&] { return !world().helperRunning(); }, 10);
  EXPECT_EQ(world().exitStatus(), 0);
  EXPECT_NEAR(world().now() - asked, 0.5, 0.001);
  EXPECT_TRUE(smc().chargingInhibited()) << "what was not done by then is not done";
}

TEST_F(OrderWindows, SleepIsAcknowledgedAfterATenthOfASecondAndASlowerPauseStillLands) {
  begin(60, 80);
  stage->run(1);
  ASSERT_FALSE(smc().chargingInhibited());
  // The pause is a read, a write and a read; the first of them takes too long.
  world().faults().delayNth(SeamCall::smcCallStruct, 1, 0.15);
  const double asked = world().now();
  power().requestSleep();
  world().runUntil([&] { return power().isAsleep(); }, 10);
  EXPECT_NEAR(world().now() - asked, 0.1, 0.001);
  EXPECT_FALSE(smc().chargingInhibited()) << "not yet";
  world().runFor(600);
  EXPECT_FALSE(smc().chargingInhibited()) << "nothing runs while the Mac sleeps";
  power().wake();
  world().runFor(0.06);
  EXPECT_EQ(world().logCount("pre-sleep CHTE pause-write succeeded"), 1U);
}

}  // namespace

}  // namespace sweeps
