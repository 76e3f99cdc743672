// Starting and stopping a discharge on request.

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* lidRefusal =
    "failed 503 Open the lid to start force-discharge — clamshell mode is unsafe with the adapter "
    "inflow disabled on this Mac.";

TEST(ForceDischargeTest, StartInhibitsTheInflowHoldsTheMacAwakeAndRecordsIt) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.run(2);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
  EXPECT_THAT(bench.since("smc disk power reply"),
              ElementsAre("smc CHIE <- 08",
                          "power assertion 33001 created PreventUserIdleSystemSleep \"Korvel: "
                          "force-discharge\" (pid 501, 14400 s)",
                          "power assertion 33002 created PreventSystemSleep \"Korvel: "
                          "force-discharge\" (pid 501, 14400 s)",
                          "disk state.json replaced: forceDischargeActive=true "
                          "lastWriteAt=2026-01-01T00:00:02Z",
                          "reply forceDischarge ok"));
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "forceDischarge(1)")))
      << "a running loop is left as it is";
}

TEST(ForceDischargeTest, StartArmsTheWatchdogWhenNoLoopRuns) {
  Bench bench;
  bench.saveState(HelperState());
  bench.charge(90);
  bench.boot();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
  EXPECT_EQ(bench.logs().back(),
            "default forceDischarge: arming watchdog polling loop at limit=80");
  bench.charge(80);
  bench.run(5);
  EXPECT_EQ(bench.logs().back(), "default force-discharge auto-stopped: reason=targetReached");
}

TEST(ForceDischargeTest, StartAtTwentyOneSucceedsAndAtTwentyNamesTheFloorTwice) {
  Bench bench;
  bench.charge(20);
  bench.boot();
  bench.call(bench.app->setChargeLimit(20));
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))),
            "failed 400 Battery is at 20% — below the 20% safety floor for force-discharge.");
  bench.charge(21);
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
}

TEST(ForceDischargeTest, StartUnderAClosedLidHasAFloorOfThirty) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootWithLimit(20);
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mac().lid.close();
  bench.charge(30);
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))),
            "failed 400 Battery is at 30% — below the 30% safety floor for force-discharge.");
  bench.charge(31);
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
}

TEST(ForceDischargeTest, StartAtTheLimitNamesTheLimit) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(80);
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))),
            "failed 400 Battery is already at the 80% limit.");
  EXPECT_FALSE(bench.state().forceDischargeActive);
}

TEST(ForceDischargeTest, StartUnderAClosedLidWithoutKeepAwakeIsRefusedFirst) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootWithLimit(50);
  bench.mac().lid.close();
  bench.chargeUnreadable();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), lidRefusal)
      << "the lid is asked before the charge";
}

TEST(ForceDischargeTest, StartWithoutAReadingAsksToTryAgain) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.chargeUnreadable();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))),
            "failed 400 Can't read the battery level right now — try again in a moment before "
            "starting force-discharge.");
}

TEST(ForceDischargeTest, RefusalsChangeNothing) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(75);
  bench.call(bench.app->forceDischarge(true));
  bench.charge(15);
  bench.call(bench.app->forceDischarge(true));
  bench.chargeUnreadable();
  bench.call(bench.app->forceDischarge(true));
  EXPECT_THAT(bench.since("smc disk power"), IsEmpty());
}

TEST(ForceDischargeTest, StartWhileActiveRepliesTrueAndWritesNothing) {
  Bench bench;
  bench.bootDischarging();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
  EXPECT_THAT(bench.since("smc disk power"), IsEmpty());
}

TEST(ForceDischargeTest, StartWhileActiveIsStillRefusedByTheChecksBeforeIt) {
  Bench bench;
  bench.bootDischarging();
  bench.charge(50);
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))),
            "failed 400 Battery is already at the 50% limit.");
}

TEST(ForceDischargeTest, MachineWithoutDischargeKeysIsUnsupported) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.charge(90);
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))),
            "failed 503 Force-discharge isn't supported on this Mac.");
  EXPECT_THAT(bench.since("disk power"), IsEmpty());
}

TEST(ForceDischargeTest, RefusalForUnsupportedKeysLeavesKeepAwakeArmed) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.charge(90);
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))),
            "failed 503 Force-discharge isn't supported on this Mac.");
  EXPECT_THAT(bench.since("disk power"), IsEmpty());
  EXPECT_TRUE(bench.mac().power.sleepDisabled());
  bench.mark();
  bench.call(bench.app->setClamshellKeepAwake(false));
  EXPECT_EQ(bench.logs().back(), "default clamshell keep-awake DISARMED") << "it was not armed";
}

TEST(ForceDischargeTest, MachineWithBothFamiliesWritesOnlyTheNewerKey) {
  Bench bench("both-families");
  bench.bootDischarging();
  bench.call(bench.app->forceDischarge(false));
  EXPECT_EQ(bench.mac().smc.writeCount("CHIE"), 2U);
  EXPECT_EQ(bench.mac().smc.writeCount("CH0I"), 0U);
  EXPECT_EQ(bench.mac().smc.writeCount("CH0J"), 0U);
}

TEST(ForceDischargeTest, OlderFamilyStartsWithBothKeysAndStopsInReverse) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  bench.charge(49);
  bench.run(5);
  bench.charge(70);
  bench.mark();
  bench.call(bench.app->forceDischarge(true));
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0I <- 01", "smc CH0J <- 01"));
  bench.mark();
  bench.charge(49);
  bench.call(bench.app->forceDischarge(false));
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
}

TEST(ForceDischargeTest, SecondKeyOfTheOlderFamilyMayFailUnnoticed) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.mac().smc.key("CH0J")->writeResult = 134;
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
  EXPECT_TRUE(bench.onDisk().forceDischargeActive);
}

TEST(ForceDischargeTest, FirstKeyOfTheOlderFamilyMustSucceedBeforeTheSecondIsWritten) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.mac().smc.key("CH0I")->writeResult = 134;
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0I <- 01 refused (result 134)"));
}

TEST(ForceDischargeTest, FailedStartDisarmsKeepAwakeAndLeavesTheRecordAlone) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mac().smc.key("CHIE")->writeResult = 134;
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_THAT(bench.since("disk power"),
              ElementsAre("power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false"));
  EXPECT_FALSE(bench.state().forceDischargeActive);
}

TEST(ForceDischargeTest, MissingAssertionDoesNotPreventADischarge) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.mac().power.assertionRefusal = ioReturnError;
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
  EXPECT_TRUE(bench.onDisk().forceDischargeActive);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(false))), "ok");
  EXPECT_THAT(bench.since("power"), IsEmpty());
}

TEST(ForceDischargeTest, StartClearsTheBannerOfTheLastStop) {
  Bench bench;
  bench.bootDischarging(70);
  bench.charge(50);
  bench.run(5);
  ASSERT_TRUE(bench.state().lastDischargeAbortReason.has_value());
  ASSERT_TRUE(bench.state().lastDischargeAbortAt.has_value());
  bench.charge(70);
  bench.call(bench.app->forceDischarge(true));
  EXPECT_FALSE(bench.onDisk().lastDischargeAbortReason.has_value());
  EXPECT_FALSE(bench.onDisk().lastDischargeAbortAt.has_value());
}

TEST(ForceDischargeTest, UserStopAboveTheLimitPausesChargingAtOnceAndLeavesNoBanner) {
  Bench bench;
  bench.bootDischarging();
  bench.run(1);
  bench.mark();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(false))), "ok");
  EXPECT_THAT(bench.since("smc disk power reply"),
              ElementsAre("smc CHIE <- 00", "smc CHTE <- 01 00 00 00",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false "
                          "lastWriteAt=2026-01-01T00:00:01Z",
                          "reply forceDischarge ok"));
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "forceDischarge(0)")))
      << "the outcome of this pause is not reported";
  EXPECT_FALSE(bench.state().lastDischargeAbortReason.has_value());
}

TEST(ForceDischargeTest, UserStopDisarmsKeepAwake) {
  Bench bench;
  bench.bootArmedDischarge();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(false))), "ok");
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "forceDischarge(0)"),
                                        "default clamshell keep-awake DISARMED"));
  EXPECT_FALSE(bench.mac().power.sleepDisabled());
  EXPECT_FALSE(bench.onDisk().sleepDisabledByKorvel);
  bench.mark();
  bench.call(bench.app->setClamshellKeepAwake(false));
  EXPECT_THAT(bench.since("power disk"), IsEmpty()) << "it was still armed";
}

TEST(ForceDischargeTest, UserStopExactlyAtTheLimitPausesAndBelowItDoesNot) {
  for (const int percent : {50, 49}) {
    Bench bench;
    bench.bootDischarging();
    bench.charge(percent);
    bench.call(bench.app->forceDischarge(false));
    EXPECT_EQ(bench.mac().smc.writeCount("CHTE"), percent == 50 ? 1U : 0U) << percent;
  }
}

TEST(ForceDischargeTest, UserStopDoesNotPauseWithoutAdapterReadingOrAtHundred) {
  {
    Bench bench;
    bench.bootDischarging();
    bench.adapterUnknown();
    bench.call(bench.app->forceDischarge(false));
    EXPECT_EQ(bench.mac().smc.writeCount("CHTE"), 0U);
  }
  {
    Bench bench;
    bench.bootDischarging();
    bench.chargeUnreadable();
    bench.call(bench.app->forceDischarge(false));
    EXPECT_EQ(bench.mac().smc.writeCount("CHTE"), 0U);
  }
  {
    Bench bench;
    bench.bootWithLimit(100);
    bench.charge(100);
    bench.call(bench.app->forceDischarge(false));
    EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHIE <- 00"));
  }
}

TEST(ForceDischargeTest, UserStopReportsAFailedStopWriteAndStillEndsTheDischarge) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().smc.key("CHIE")->writeResult = 134;
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(false))),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
  EXPECT_TRUE(bench.mac().power.assertions().empty());
}

TEST(ForceDischargeTest, UserStopOnTheOlderFamilyReportsOnlyTheLastWrite) {
  Bench bench("older-pair");
  bench.bootDischarging();
  bench.mac().smc.key("CH0J")->writeResult = 134;
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(false))), "ok");
}

TEST(ForceDischargeTest, UserStopWithoutADischargeStillWritesTheKeysAndSucceeds) {
  Bench bench;
  bench.boot();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(false))), "ok");
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHIE <- 00"));
}

TEST(ForceDischargeTest, UserStopOnAMachineWithoutKeysSucceeds) {
  Bench bench("no-control");
  bench.boot();
  EXPECT_EQ(outcome(bench.call(bench.app->forceDischarge(false))), "ok");
}

TEST(ForceDischargeTest, StartSupersedesATopOff) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.charge(70);
  bench.mark();
  ASSERT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
  EXPECT_FALSE(bench.state().topUpActive);
  bench.run(5);
  EXPECT_THAT(bench.logs(),
              ElementsAre(audit(bench, "forceDischarge(1)"),
                          "default forceDischarge: arming watchdog polling loop at limit=50",
                          "default top-off restore loop superseded — bailing"));
}

}  // namespace
}  // namespace korvel::test
