// A discharge starts and stops on request.

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* lidRefusal =
    "failed 503 Open the lid to start force-discharge — clamshell mode is unsafe with the adapter "
    "inflow disabled on this Mac.";

using ForceDischargeTest = OnBench;

TEST_F(ForceDischargeTest, StartInhibitsTheInflowHoldsTheMacAwakeAndRecordsIt) {
  bootWithLimit(50, 70);
  run(2);
  mark();
  EXPECT_EQ(ask(app->forceDischarge(true)), "ok");
  EXPECT_THAT(since("smc disk power reply"),
              ElementsAre("smc CHIE <- 08",
                          "power assertion 33001 created PreventUserIdleSystemSleep \"Korvel: "
                          "force-discharge\" (pid 501, 14400 s)",
                          "power assertion 33002 created PreventSystemSleep \"Korvel: "
                          "force-discharge\" (pid 501, 14400 s)",
                          "disk state.json replaced: forceDischargeActive=true "
                          "lastWriteAt=2026-01-01T00:00:02Z",
                          "reply forceDischarge ok"));
  EXPECT_THAT(logs(), ElementsAre(audit("forceDischarge(1)"))) << "a running loop is left as it is";
}

TEST_F(ForceDischargeTest, StartArmsTheWatchdogWhenNoLoopRuns) {
  saveState(HelperState());
  bootAt(90);
  EXPECT_EQ(ask(app->forceDischarge(true)), "ok");
  EXPECT_EQ(logs().back(), "default forceDischarge: arming watchdog polling loop at limit=80");
  tickAt(80);
  EXPECT_EQ(logs().back(), "default force-discharge auto-stopped: reason=targetReached");
}

TEST_F(ForceDischargeTest, StartAtTwentyOneSucceedsAndAtTwentyNamesTheFloorTwice) {
  bootAt(20);
  call(app->setChargeLimit(20));
  EXPECT_EQ(ask(app->forceDischarge(true)),
            "failed 400 Battery is at 20% — below the 20% safety floor for force-discharge.");
  charge(21);
  EXPECT_EQ(ask(app->forceDischarge(true)), "ok");
}

TEST_F(ForceDischargeTest, StartUnderAClosedLidHasAFloorOfThirty) {
  mac().lid.connectDisplay();
  bootWithLimit(20);
  call(app->setClamshellKeepAwake(true));
  mac().lid.close();
  charge(30);
  EXPECT_EQ(ask(app->forceDischarge(true)),
            "failed 400 Battery is at 30% — below the 30% safety floor for force-discharge.");
  charge(31);
  EXPECT_EQ(ask(app->forceDischarge(true)), "ok");
}

TEST_F(ForceDischargeTest, StartAtTheLimitNamesTheLimit) {
  bootWithLimit(80, 80);
  EXPECT_EQ(ask(app->forceDischarge(true)), "failed 400 Battery is already at the 80% limit.");
  EXPECT_FALSE(state().forceDischargeActive);
}

TEST_F(ForceDischargeTest, StartUnderAClosedLidWithoutKeepAwakeIsRefusedFirst) {
  mac().lid.connectDisplay();
  bootWithLimit(50);
  mac().lid.close();
  chargeUnreadable();
  EXPECT_EQ(ask(app->forceDischarge(true)), lidRefusal) << "the lid is asked before the charge";
}

TEST_F(ForceDischargeTest, StartWithoutAReadingAsksToTryAgain) {
  bootWithLimit(50);
  chargeUnreadable();
  EXPECT_EQ(ask(app->forceDischarge(true)),
            "failed 400 Can't read the battery level right now — try again in a moment before "
            "starting force-discharge.");
}

TEST_F(ForceDischargeTest, RefusalsChangeNothing) {
  bootWithLimit(80, 75);
  call(app->forceDischarge(true));
  charge(15);
  call(app->forceDischarge(true));
  chargeUnreadable();
  call(app->forceDischarge(true));
  EXPECT_THAT(since("smc disk power"), IsEmpty());
}

TEST_F(ForceDischargeTest, StartWhileActiveRepliesTrueAndWritesNothing) {
  bootDischarging();
  EXPECT_EQ(ask(app->forceDischarge(true)), "ok");
  EXPECT_THAT(since("smc disk power"), IsEmpty());
}

TEST_F(ForceDischargeTest, StartWhileActiveIsStillRefusedByTheChecksBeforeIt) {
  bootDischarging();
  charge(50);
  EXPECT_EQ(ask(app->forceDischarge(true)), "failed 400 Battery is already at the 50% limit.");
}

TEST_F(ForceDischargeTest, MachineWithoutDischargeKeysIsUnsupported) {
  Bench bench("native-only");
  bench.bootWithLimit(80, 90);
  EXPECT_EQ(bench.ask(bench.app->forceDischarge(true)),
            "failed 503 Force-discharge isn't supported on this Mac.");
  EXPECT_THAT(bench.since("disk power"), IsEmpty());
}

TEST_F(ForceDischargeTest, RefusalForUnsupportedKeysLeavesKeepAwakeArmed) {
  Bench bench("native-only");
  bench.bootWithLimit(80, 90);
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mark();
  EXPECT_EQ(bench.ask(bench.app->forceDischarge(true)),
            "failed 503 Force-discharge isn't supported on this Mac.");
  EXPECT_THAT(bench.since("disk power"), IsEmpty());
  EXPECT_TRUE(bench.mac().power.sleepDisabled());
  bench.mark();
  bench.call(bench.app->setClamshellKeepAwake(false));
  EXPECT_EQ(bench.logs().back(), "default clamshell keep-awake DISARMED") << "it was not armed";
}

TEST_F(ForceDischargeTest, MachineWithBothFamiliesWritesOnlyTheNewerKey) {
  Bench bench("both-families");
  bench.bootDischarging();
  bench.call(bench.app->forceDischarge(false));
  EXPECT_EQ(bench.mac().smc.writeCount("CHIE"), 2U);
  EXPECT_EQ(bench.mac().smc.writeCount("CH0I"), 0U);
  EXPECT_EQ(bench.mac().smc.writeCount("CH0J"), 0U);
}

TEST_F(ForceDischargeTest, OlderFamilyStartsWithBothKeysAndStopsInReverse) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  bench.tickAt(49);
  bench.charge(70);
  bench.mark();
  bench.call(bench.app->forceDischarge(true));
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0I <- 01", "smc CH0J <- 01"));
  bench.mark();
  bench.charge(49);
  bench.call(bench.app->forceDischarge(false));
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
}

TEST_F(ForceDischargeTest, SecondKeyOfTheOlderFamilyMayFailUnnoticed) {
  Bench bench("older-pair");
  bench.bootWithLimit(50, 70);
  bench.mac().smc.key("CH0J")->writeResult = 134;
  EXPECT_EQ(bench.ask(bench.app->forceDischarge(true)), "ok");
  EXPECT_TRUE(bench.onDisk().forceDischargeActive);
}

TEST_F(ForceDischargeTest, FirstKeyOfTheOlderFamilyMustSucceedBeforeTheSecondIsWritten) {
  Bench bench("older-pair");
  bench.bootWithLimit(50, 70);
  bench.mac().smc.key("CH0I")->writeResult = 134;
  EXPECT_EQ(bench.ask(bench.app->forceDischarge(true)),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0I <- 01 refused (result 134)"));
}

TEST_F(ForceDischargeTest, FailedStartDisarmsKeepAwakeAndLeavesTheRecordAlone) {
  bootWithLimit(50, 70);
  call(app->setClamshellKeepAwake(true));
  mac().smc.key("CHIE")->writeResult = 134;
  mark();
  EXPECT_EQ(ask(app->forceDischarge(true)),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_THAT(since("disk power"),
              ElementsAre("power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false"));
  EXPECT_FALSE(state().forceDischargeActive);
}

TEST_F(ForceDischargeTest, MissingAssertionDoesNotPreventADischarge) {
  bootWithLimit(50, 70);
  mac().power.assertionRefusal = ioReturnError;
  EXPECT_EQ(ask(app->forceDischarge(true)), "ok");
  EXPECT_TRUE(onDisk().forceDischargeActive);
  mark();
  EXPECT_EQ(ask(app->forceDischarge(false)), "ok");
  EXPECT_THAT(since("power"), IsEmpty());
}

TEST_F(ForceDischargeTest, StartClearsTheBannerOfTheLastStop) {
  bootDischarging(70);
  tickAt(50);
  ASSERT_TRUE(state().lastDischargeAbortReason.has_value());
  ASSERT_TRUE(state().lastDischargeAbortAt.has_value());
  charge(70);
  call(app->forceDischarge(true));
  EXPECT_FALSE(onDisk().lastDischargeAbortReason.has_value());
  EXPECT_FALSE(onDisk().lastDischargeAbortAt.has_value());
}

TEST_F(ForceDischargeTest, UserStopAboveTheLimitPausesChargingAtOnceAndLeavesNoBanner) {
  bootDischarging();
  run(1);
  mark();
  EXPECT_EQ(ask(app->forceDischarge(false)), "ok");
  EXPECT_THAT(since("smc disk power reply"),
              ElementsAre("smc CHIE <- 00", "smc CHTE <- 01 00 00 00",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false "
                          "lastWriteAt=2026-01-01T00:00:01Z",
                          "reply forceDischarge ok"));
  EXPECT_THAT(logs(), ElementsAre(audit("forceDischarge(0)")))
      << "the outcome of this pause is not reported";
  EXPECT_FALSE(state().lastDischargeAbortReason.has_value());
}

TEST_F(ForceDischargeTest, UserStopDisarmsKeepAwake) {
  bootArmedDischarge();
  EXPECT_EQ(ask(app->forceDischarge(false)), "ok");
  EXPECT_THAT(logs(),
              ElementsAre(audit("forceDischarge(0)"), "default clamshell keep-awake DISARMED"));
  EXPECT_FALSE(mac().power.sleepDisabled());
  EXPECT_FALSE(onDisk().sleepDisabledByKorvel);
  mark();
  call(app->setClamshellKeepAwake(false));
  EXPECT_THAT(since("power disk"), IsEmpty()) << "it was still armed";
}

TEST_F(ForceDischargeTest, UserStopExactlyAtTheLimitPausesAndBelowItDoesNot) {
  for (const int percent : {50, 49}) {
    Bench bench;
    bench.bootDischarging();
    bench.charge(percent);
    bench.call(bench.app->forceDischarge(false));
    EXPECT_EQ(bench.mac().smc.writeCount("CHTE"), percent == 50 ? 1U : 0U) << percent;
  }
}

TEST_F(ForceDischargeTest, UserStopDoesNotPauseWithoutAdapterReadingOrAtHundred) {
  for (const auto loseReading : {&Bench::adapterUnknown, &Bench::chargeUnreadable}) {
    Bench bench;
    bench.bootDischarging();
    (bench.*loseReading)();
    bench.call(bench.app->forceDischarge(false));
    EXPECT_EQ(bench.mac().smc.writeCount("CHTE"), 0U);
  }
  bootWithLimit(100, 100);
  call(app->forceDischarge(false));
  EXPECT_THAT(since("smc"), ElementsAre("smc CHIE <- 00"));
}

TEST_F(ForceDischargeTest, UserStopReportsAFailedStopWriteAndStillEndsTheDischarge) {
  bootDischarging();
  mac().smc.key("CHIE")->writeResult = 134;
  EXPECT_EQ(ask(app->forceDischarge(false)),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_FALSE(onDisk().forceDischargeActive);
  EXPECT_TRUE(mac().power.assertions().empty());
}

TEST_F(ForceDischargeTest, UserStopOnTheOlderFamilyReportsOnlyTheLastWrite) {
  Bench bench("older-pair");
  bench.bootDischarging();
  bench.mac().smc.key("CH0J")->writeResult = 134;
  EXPECT_EQ(bench.ask(bench.app->forceDischarge(false)), "ok");
}

TEST_F(ForceDischargeTest, UserStopWithoutADischargeStillWritesTheKeysAndSucceeds) {
  boot();
  EXPECT_EQ(ask(app->forceDischarge(false)), "ok");
  EXPECT_THAT(since("smc"), ElementsAre("smc CHIE <- 00"));
}

TEST_F(ForceDischargeTest, UserStopOnAMachineWithoutKeysSucceeds) {
  Bench bench("no-control");
  bench.boot();
  EXPECT_EQ(bench.ask(bench.app->forceDischarge(false)), "ok");
}

TEST_F(ForceDischargeTest, StartSupersedesATopOff) {
  bootToppingOff(50);
  charge(70);
  mark();
  ASSERT_EQ(ask(app->forceDischarge(true)), "ok");
  EXPECT_FALSE(state().topUpActive);
  run(5);
  EXPECT_THAT(logs(),
              ElementsAre(audit("forceDischarge(1)"),
                          "default forceDischarge: arming watchdog polling loop at limit=50",
                          "default top-off restore loop superseded — bailing"));
}

}  // namespace
}  // namespace korvel::test
