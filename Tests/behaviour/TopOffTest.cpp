// A top-off fills the battery once and restores the limit; it may time out or be cancelled.

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* superseded = "default top-off restore loop superseded — bailing";

using TopOffTest = OnBench;

TEST_F(TopOffTest, ReleaseStopsEnforcementResumesChargingAndSaysSoOnDisk) {
  bootWithLimit(50);
  tickAt(70);
  mark();
  EXPECT_EQ(ask(app->releaseLimitUntilFullThenRestore()), "ok");
  EXPECT_THAT(since("smc disk reply"),
              ElementsAre("smc CHIE <- 00", "smc CHTE <- 00 00 00 00",
                          "disk state.json replaced: lastWriteAt=2026-01-01T00:00:05Z "
                          "topUpActive=true",
                          "reply releaseLimitUntilFullThenRestore ok"));
  EXPECT_THAT(logs(), ElementsAre(audit("releaseLimitUntilFullThenRestore")));
  run(60);
  EXPECT_EQ(key("CHTE"), "00 00 00 00") << "the limit is not enforced meanwhile";
}

TEST_F(TopOffTest, BatteryAtHundredRestoresTheLimitAtTheFirstTick) {
  bootToppingOff(80, 100);
  run(4.999);
  EXPECT_TRUE(state().topUpActive);
  mark();
  run(0.001);
  EXPECT_THAT(logs(), ElementsAre("default top-off complete — restored limit 80",
                                  "default charge enforcement pause:ok"));
  EXPECT_THAT(since("disk smc"), ElementsAre("disk state.json replaced: topUpActive=false",
                                             "smc CHTE <- 01 00 00 00"));
  run(60);
  EXPECT_EQ(world.logCount("top-off complete — restored limit 80"), 1U) << "its loop ended";
}

TEST_F(TopOffTest, NinetyNineIsNotFull) {
  bootToppingOff(80, 99);
  run(600);
  EXPECT_TRUE(state().topUpActive);
}

TEST_F(TopOffTest, MoreThanAHundredIsFullToo) {
  bootToppingOff(80, 101);
  mark();
  run(5);
  EXPECT_THAT(logs(), ElementsAre("default top-off complete — restored limit 80",
                                  "default charge enforcement pause:ok"));
  EXPECT_FALSE(state().topUpActive);
}

TEST_F(TopOffTest, WithoutAnyReadingTheLoopEndsAtItsLastTickAndRestoresTheLimit) {
  bootWithLimit(80);
  chargeUnreadable();
  call(app->releaseLimitUntilFullThenRestore());
  mark();
  run(1440 * 5 - 0.001);
  EXPECT_TRUE(state().topUpActive);
  EXPECT_THAT(logs(), IsEmpty());
  run(0.001);
  EXPECT_THAT(logs(),
              ElementsAre("error top-off restore loop timed out without reaching 100% — restoring "
                          "limit"));
  EXPECT_THAT(since("disk"), ElementsAre("disk state.json replaced: topUpActive=false"));
  mark();
  charge(80);
  run(60);
  EXPECT_EQ(key("CHTE"), "01 00 00 00") << "the limit is enforced again";
  EXPECT_THAT(logs(), ElementsAre("default charge enforcement pause:ok"));
}

TEST_F(TopOffTest, ReadingBelowFullAtTheLastTickIsATimeOut) {
  bootToppingOff(80);
  run(1439 * 5);
  EXPECT_TRUE(state().topUpActive);
  mark();
  tickAt(90);
  EXPECT_THAT(logs(),
              ElementsAre("error top-off restore loop timed out without reaching 100% — restoring "
                          "limit",
                          "default charge enforcement pause:ok"));
  EXPECT_FALSE(onDisk().topUpActive);
}

TEST_F(TopOffTest, FullAtTheVeryLastTickIsComplete) {
  bootToppingOff(80);
  run(1439 * 5);
  mark();
  tickAt(100);
  EXPECT_EQ(logs().front(), "default top-off complete — restored limit 80");
}

TEST_F(TopOffTest, CancelWithoutATopOffChangesNothingNotEvenTheGeneration) {
  bootWithLimit(80);
  EXPECT_EQ(ask(app->cancelTopUp()), "ok");
  EXPECT_THAT(since("smc disk"), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(audit("cancelTopUp")));
}

TEST_F(TopOffTest, CancelWhileARevertedTopOffStillTicksDoesNotEndIt) {
  // The record says that no top-off runs, so a cancel is a no-op and the loop's generation stands.
  bootWithLimit(80);
  mac().disk.replaceFails = true;
  call(app->releaseLimitUntilFullThenRestore());
  ASSERT_FALSE(state().topUpActive);
  mac().disk.replaceFails = false;
  call(app->cancelTopUp());
  mark();
  tickAt(100);
  EXPECT_EQ(logs().front(), "default top-off complete — restored limit 80");
}

TEST_F(TopOffTest, CancelRestoresAtOnceAndTheOldLoopBailsAtItsNextTick) {
  bootToppingOff(80);
  charge(90);
  run(2);
  mark();
  EXPECT_EQ(ask(app->cancelTopUp()), "ok");
  EXPECT_THAT(since("disk reply smc"),
              ElementsAre("disk state.json replaced: lastWriteAt=2026-01-01T00:00:02Z "
                          "topUpActive=false",
                          "reply cancelTopUp ok", "smc CHTE <- 01 00 00 00"));
  run(60);
  EXPECT_THAT(logs(),
              ElementsAre(audit("cancelTopUp"), "default charge enforcement pause:ok", superseded));
}

TEST_F(TopOffTest, SupersededLoopWhoseBatteryIsFullRestoresNothing) {
  const std::vector<NamedCommand> commands = {
      {"clearChargeLimit", [](AppClient& client) { return client.clearChargeLimit(); }},
      {"resetAllSMCKeys", [](AppClient& client) { return client.resetAllSMCKeys(); }},
  };
  for (const auto& [name, command] : commands) {
    Bench bench;
    bench.bootToppingOff(80);
    ASSERT_EQ(bench.ask(command(*bench.app)), "ok") << name;
    bench.mark();
    bench.tickAt(100);
    EXPECT_THAT(bench.logs(), ElementsAre(superseded)) << name;
    const auto before = bench.world.callCounts();
    bench.run(60);
    EXPECT_THAT(bench.since("smc disk"), IsEmpty()) << name;
    EXPECT_EQ((bench.world.callCounts() - before).text(), "") << name << ": a loop runs";
  }
}

TEST_F(TopOffTest, OfTwoRequestsOnlyTheSecondLoopSurvives) {
  bootToppingOff(80);
  run(3);
  call(app->releaseLimitUntilFullThenRestore());
  mark();
  const auto& ticks = noteTicks();
  run(11);
  EXPECT_THAT(ticks, ElementsAre(8.0, 13.0));
  EXPECT_TRUE(state().topUpActive);
  EXPECT_THAT(logs(), IsEmpty()) << "the first loop is cancelled, it does not bail";
  tickAt(100);
  EXPECT_EQ(world.logCount("top-off complete — restored limit 80"), 1U);
  EXPECT_FALSE(state().topUpActive);
}

TEST_F(TopOffTest, EndsADischargeAndKeepAwakeFirst) {
  bootArmedDischarge();
  call(app->releaseLimitUntilFullThenRestore());
  EXPECT_THAT(since("smc power disk"),
              ElementsAre("smc CHIE <- 00", "power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false topUpActive=true"));
  EXPECT_FALSE(state().lastDischargeAbortReason.has_value());
}

TEST_F(TopOffTest, OlderFamilyReleasesItsKeysInReverse) {
  Bench bench("older-pair");
  bench.bootToppingOff(50);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
}

TEST_F(TopOffTest, MachineWithoutDischargeKeysStillResumesCharging) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.tickAt(90);
  ASSERT_EQ(bench.mac().powerUI.currentLimit(), 80);
  bench.mark();
  EXPECT_EQ(bench.ask(bench.app->releaseLimitUntilFullThenRestore()), "ok");
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 0);
}

TEST_F(TopOffTest, MachineWithoutADischargeFamilyWritesNoDischargeKeyAndResumes) {
  mac().smc.removeKey("CHIE");
  mac().smc.addKey({"CH0J", 1, "ui8 ", 0xd0, {0}});  // Half a pair is no family.
  bootWithLimit(80);
  tickAt(90);
  mark();
  EXPECT_EQ(ask(app->releaseLimitUntilFullThenRestore()), "ok");
  EXPECT_THAT(since("smc"), ElementsAre("smc CHTE <- 00 00 00 00"));
  EXPECT_TRUE(state().topUpActive);
}

TEST_F(TopOffTest, DischargeKeyThatCannotBeWrittenDoesNotStopIt) {
  bootWithLimit(80);
  tickAt(90);
  mac().smc.key("CHIE")->writeResult = 134;
  mark();
  EXPECT_EQ(ask(app->releaseLimitUntilFullThenRestore()), "ok");
  EXPECT_THAT(since("smc"),
              ElementsAre("smc CHIE <- 00 refused (result 134)", "smc CHTE <- 00 00 00 00"));
  EXPECT_TRUE(state().topUpActive);
}

TEST_F(TopOffTest, FailedResumeIsReportedAndNothingIsRolledBack) {
  bootDischarging();
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  mac().smc.key("CHTE")->writeResult = 134;
  mark();
  EXPECT_EQ(ask(app->releaseLimitUntilFullThenRestore()),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_FALSE(state().topUpActive);
  EXPECT_FALSE(state().forceDischargeActive);
  mark();
  run(60);
  EXPECT_THAT(since("smc log"), IsEmpty()) << "enforcement stays stopped";
}

TEST_F(TopOffTest, SecondRequestThatFailsLeavesTheFirstLoopRunning) {
  bootToppingOff(80);
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  mac().smc.key("CHTE")->writeResult = 134;
  EXPECT_EQ(call(app->releaseLimitUntilFullThenRestore()).errorCode(), 500);
  EXPECT_TRUE(state().topUpActive);
  mac().smc.key("CHTE")->writeResult.reset();
  mark();
  tickAt(100);
  EXPECT_EQ(logs().front(), "default top-off complete — restored limit 80");
}

TEST_F(TopOffTest, LimitToRestoreIsTheOneOfTheStart) {
  // Every command with another limit ends the top-off; a record that is reverted does not.
  bootToppingOff(70);
  saveState(savedLimit(90));
  mac().disk.replaceFails = true;
  call(app->setClamshellKeepAwake(true));
  ASSERT_EQ(state().chargeLimit, 90);
  mac().disk.replaceFails = false;
  mark();
  tickAt(100);
  EXPECT_THAT(logs(), ElementsAre("default top-off complete — restored limit 70",
                                  "default charge enforcement pause:ok"));
  charge(70);
  mac().smc.setValue("CHTE", {0, 0, 0, 0});
  run(5);
  EXPECT_EQ(key("CHTE"), "01 00 00 00") << "and the one that is enforced";
}

TEST_F(TopOffTest, EveryCommandThatChangesEnforcementSupersedesIt) {
  const std::vector<NamedCommand> commands = {
      {"setChargeLimit", [](AppClient& client) { return client.setChargeLimit(60); }},
      {"clearChargeLimit", [](AppClient& client) { return client.clearChargeLimit(); }},
      {"resetAllSMCKeys", [](AppClient& client) { return client.resetAllSMCKeys(); }},
      {"forceDischarge", [](AppClient& client) { return client.forceDischarge(true); }},
  };
  for (const auto& [name, command] : commands) {
    Bench bench;
    bench.bootToppingOff(50);
    bench.charge(70);
    ASSERT_EQ(bench.ask(command(*bench.app)), "ok") << name;
    EXPECT_FALSE(bench.state().topUpActive) << name;
    bench.mark();
    bench.run(20);
    EXPECT_THAT(bench.logs(), ::testing::Contains(superseded)) << name;
    EXPECT_EQ(bench.world.logCount(std::string(superseded).substr(8)), 1U) << name;
  }
}

}  // namespace
}  // namespace korvel::test
