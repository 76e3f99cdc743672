// Filling the battery once, restoring the limit, giving up, cancelling, and being superseded.

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* superseded = "default top-off restore loop superseded — bailing";

TEST(TopOffTest, ReleaseStopsEnforcementResumesChargingAndSaysSoOnDisk) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.run(5);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->releaseLimitUntilFullThenRestore())), "ok");
  EXPECT_THAT(bench.since("smc disk reply"),
              ElementsAre("smc CHIE <- 00", "smc CHTE <- 00 00 00 00",
                          "disk state.json replaced: lastWriteAt=2026-01-01T00:00:05Z "
                          "topUpActive=true",
                          "reply releaseLimitUntilFullThenRestore ok"));
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "releaseLimitUntilFullThenRestore")));
  bench.run(60);
  EXPECT_EQ(bench.key("CHTE"), "00 00 00 00") << "the limit is not enforced meanwhile";
}

TEST(TopOffTest, BatteryAtHundredRestoresTheLimitAtTheFirstTick) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(100);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.run(4.999);
  EXPECT_TRUE(bench.state().topUpActive);
  bench.mark();
  bench.run(0.001);
  EXPECT_THAT(bench.logs(), ElementsAre("default top-off complete — restored limit 80",
                                        "default charge enforcement pause:ok"));
  EXPECT_THAT(bench.since("disk smc"), ElementsAre("disk state.json replaced: topUpActive=false",
                                                   "smc CHTE <- 01 00 00 00"));
  bench.run(60);
  EXPECT_EQ(bench.world.logCount("top-off complete — restored limit 80"), 1U) << "its loop ended";
}

TEST(TopOffTest, NinetyNineIsNotFull) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(99);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.run(600);
  EXPECT_TRUE(bench.state().topUpActive);
}

TEST(TopOffTest, MoreThanAHundredIsFullToo) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(101);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.mark();
  bench.run(5);
  EXPECT_THAT(bench.logs(), ElementsAre("default top-off complete — restored limit 80",
                                        "default charge enforcement pause:ok"));
  EXPECT_FALSE(bench.state().topUpActive);
}

TEST(TopOffTest, WithoutAnyReadingTheLoopEndsAtItsLastTickAndRestoresTheLimit) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.chargeUnreadable();
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.mark();
  bench.run(1440 * 5 - 0.001);
  EXPECT_TRUE(bench.state().topUpActive);
  EXPECT_THAT(bench.logs(), IsEmpty());
  bench.run(0.001);
  EXPECT_THAT(bench.logs(),
              ElementsAre("error top-off restore loop timed out without reaching 100% — restoring "
                          "limit"));
  EXPECT_THAT(bench.since("disk"), ElementsAre("disk state.json replaced: topUpActive=false"));
  bench.mark();
  bench.charge(80);
  bench.run(60);
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00") << "the limit is enforced again";
  EXPECT_THAT(bench.logs(), ElementsAre("default charge enforcement pause:ok"));
}

TEST(TopOffTest, ReadingBelowFullAtTheLastTickIsATimeOut) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.run(1439 * 5);
  EXPECT_TRUE(bench.state().topUpActive);
  bench.mark();
  bench.charge(90);
  bench.run(5);
  EXPECT_THAT(bench.logs(),
              ElementsAre("error top-off restore loop timed out without reaching 100% — restoring "
                          "limit",
                          "default charge enforcement pause:ok"));
  EXPECT_FALSE(bench.onDisk().topUpActive);
}

TEST(TopOffTest, FullAtTheVeryLastTickIsComplete) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.run(1439 * 5);
  bench.charge(100);
  bench.mark();
  bench.run(5);
  EXPECT_EQ(bench.logs().front(), "default top-off complete — restored limit 80");
}

TEST(TopOffTest, CancelWithoutATopOffChangesNothingNotEvenTheGeneration) {
  Bench bench;
  bench.bootWithLimit(80);
  EXPECT_EQ(outcome(bench.call(bench.app->cancelTopUp())), "ok");
  EXPECT_THAT(bench.since("smc disk"), IsEmpty());
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "cancelTopUp")));
}

TEST(TopOffTest, CancelWhileARevertedTopOffStillTicksDoesNotEndIt) {
  // The record says that no top-off runs, so a cancel is a no-op and the loop's generation stands.
  Bench bench;
  bench.bootWithLimit(80);
  bench.mac().disk.replaceFails = true;
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  ASSERT_FALSE(bench.state().topUpActive);
  bench.mac().disk.replaceFails = false;
  bench.call(bench.app->cancelTopUp());
  bench.charge(100);
  bench.mark();
  bench.run(5);
  EXPECT_EQ(bench.logs().front(), "default top-off complete — restored limit 80");
}

TEST(TopOffTest, CancelRestoresAtOnceAndTheOldLoopBailsAtItsNextTick) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.charge(90);
  bench.run(2);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->cancelTopUp())), "ok");
  EXPECT_THAT(bench.since("disk reply smc"),
              ElementsAre("disk state.json replaced: lastWriteAt=2026-01-01T00:00:02Z "
                          "topUpActive=false",
                          "reply cancelTopUp ok", "smc CHTE <- 01 00 00 00"));
  bench.run(60);
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "cancelTopUp"),
                                        "default charge enforcement pause:ok", superseded));
}

TEST(TopOffTest, SupersededLoopWhoseBatteryIsFullRestoresNothing) {
  using Command = AppCallRef (*)(AppClient&);
  const std::vector<std::pair<std::string, Command>> commands = {
      {"clearChargeLimit", [](AppClient& app) { return app.clearChargeLimit(); }},
      {"resetAllSMCKeys", [](AppClient& app) { return app.resetAllSMCKeys(); }},
  };
  for (const auto& [name, command] : commands) {
    Bench bench;
    bench.bootWithLimit(80);
    bench.call(bench.app->releaseLimitUntilFullThenRestore());
    ASSERT_EQ(outcome(bench.call(command(*bench.app))), "ok") << name;
    bench.charge(100);
    bench.mark();
    bench.run(5);
    EXPECT_THAT(bench.logs(), ElementsAre(superseded)) << name;
    const auto before = bench.world.callCounts();
    bench.run(60);
    EXPECT_THAT(bench.since("smc disk"), IsEmpty()) << name;
    EXPECT_EQ((bench.world.callCounts() - before).text(), "") << name << ": a loop runs";
  }
}

TEST(TopOffTest, OfTwoRequestsOnlyTheSecondLoopSurvives) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.run(3);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.mark();
  std::vector<double> ticks;
  bench.world.faults().observe([&](SeamCall call) {
    if (call == SeamCall::powerSourcesCopyInfo) ticks.push_back(bench.world.now());
  });
  bench.run(11);
  EXPECT_THAT(ticks, ElementsAre(8.0, 13.0));
  EXPECT_TRUE(bench.state().topUpActive);
  EXPECT_THAT(bench.logs(), IsEmpty()) << "the first loop is cancelled, it does not bail";
  bench.charge(100);
  bench.run(5);
  EXPECT_EQ(bench.world.logCount("top-off complete — restored limit 80"), 1U);
  EXPECT_FALSE(bench.state().topUpActive);
}

TEST(TopOffTest, EndsADischargeAndKeepAwakeFirst) {
  Bench bench;
  bench.bootArmedDischarge();
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  EXPECT_THAT(bench.since("smc power disk"),
              ElementsAre("smc CHIE <- 00", "power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false topUpActive=true"));
  EXPECT_FALSE(bench.state().lastDischargeAbortReason.has_value());
}

TEST(TopOffTest, OlderFamilyReleasesItsKeysInReverse) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
}

TEST(TopOffTest, MachineWithoutDischargeKeysStillResumesCharging) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.charge(90);
  bench.run(5);
  ASSERT_EQ(bench.mac().powerUI.currentLimit(), 80);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->releaseLimitUntilFullThenRestore())), "ok");
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 0);
}

TEST(TopOffTest, MachineWithoutADischargeFamilyWritesNoDischargeKeyAndResumes) {
  Bench bench;
  bench.mac().smc.removeKey("CHIE");
  bench.mac().smc.addKey({"CH0J", 1, "ui8 ", 0xd0, {0}});  // Half a pair is no family.
  bench.bootWithLimit(80);
  bench.charge(90);
  bench.run(5);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->releaseLimitUntilFullThenRestore())), "ok");
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 00 00 00 00"));
  EXPECT_TRUE(bench.state().topUpActive);
}

TEST(TopOffTest, DischargeKeyThatCannotBeWrittenDoesNotStopIt) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(90);
  bench.run(5);
  bench.mac().smc.key("CHIE")->writeResult = 134;
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->releaseLimitUntilFullThenRestore())), "ok");
  EXPECT_THAT(bench.since("smc"),
              ElementsAre("smc CHIE <- 00 refused (result 134)", "smc CHTE <- 00 00 00 00"));
  EXPECT_TRUE(bench.state().topUpActive);
}

TEST(TopOffTest, FailedResumeIsReportedAndNothingIsRolledBack) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->releaseLimitUntilFullThenRestore())),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_FALSE(bench.state().topUpActive);
  EXPECT_FALSE(bench.state().forceDischargeActive);
  bench.mark();
  bench.run(60);
  EXPECT_THAT(bench.since("smc log"), IsEmpty()) << "enforcement stays stopped";
}

TEST(TopOffTest, SecondRequestThatFailsLeavesTheFirstLoopRunning) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.mac().smc.key("CHTE")->writeResult = 134;
  EXPECT_EQ(bench.call(bench.app->releaseLimitUntilFullThenRestore()).errorCode(), 500);
  EXPECT_TRUE(bench.state().topUpActive);
  bench.mac().smc.key("CHTE")->writeResult.reset();
  bench.charge(100);
  bench.mark();
  bench.run(5);
  EXPECT_EQ(bench.logs().front(), "default top-off complete — restored limit 80");
}

TEST(TopOffTest, LimitToRestoreIsTheOneOfTheStart) {
  // Every command with another limit ends the top-off; a record that is reverted does not.
  Bench bench;
  bench.bootWithLimit(70);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.saveState(savedLimit(90));
  bench.mac().disk.replaceFails = true;
  bench.call(bench.app->setClamshellKeepAwake(true));
  ASSERT_EQ(bench.state().chargeLimit, 90);
  bench.mac().disk.replaceFails = false;
  bench.charge(100);
  bench.mark();
  bench.run(5);
  EXPECT_THAT(bench.logs(), ElementsAre("default top-off complete — restored limit 70",
                                        "default charge enforcement pause:ok"));
  bench.charge(70);
  bench.mac().smc.setValue("CHTE", {0, 0, 0, 0});
  bench.run(5);
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00") << "and the one that is enforced";
}

TEST(TopOffTest, EveryCommandThatChangesEnforcementSupersedesIt) {
  using Command = AppCallRef (*)(AppClient&);
  const std::vector<std::pair<std::string, Command>> commands = {
      {"setChargeLimit", [](AppClient& app) { return app.setChargeLimit(60); }},
      {"clearChargeLimit", [](AppClient& app) { return app.clearChargeLimit(); }},
      {"resetAllSMCKeys", [](AppClient& app) { return app.resetAllSMCKeys(); }},
      {"forceDischarge", [](AppClient& app) { return app.forceDischarge(true); }},
  };
  for (const auto& [name, command] : commands) {
    Bench bench;
    bench.bootWithLimit(50);
    bench.call(bench.app->releaseLimitUntilFullThenRestore());
    bench.charge(70);
    ASSERT_EQ(outcome(bench.call(command(*bench.app))), "ok") << name;
    EXPECT_FALSE(bench.state().topUpActive) << name;
    bench.mark();
    bench.run(20);
    EXPECT_THAT(bench.logs(), ::testing::Contains(superseded)) << name;
    EXPECT_EQ(bench.world.logCount(std::string(superseded).substr(8)), 1U) << name;
  }
}

}  // namespace
}  // namespace korvel::test
