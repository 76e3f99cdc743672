// The polling loop: when the gate is paused, resumed or left alone, through which control, and what
// is told about it.

#include <array>

#include "EnforcementDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* paused = "01 00 00 00";
constexpr const char* resumed = "00 00 00 00";

TEST(EnforcementTest, PausesAtExactlyTheLimit) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(80);
  bench.run(5);
  EXPECT_EQ(bench.key("CHTE"), paused);
  EXPECT_THAT(bench.logs(), ElementsAre("default charge enforcement pause:ok"));
}

TEST(EnforcementTest, HoldsInsideTheBandAndResumesOneBelowIt) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(85);
  bench.run(5);
  ASSERT_EQ(bench.key("CHTE"), paused);
  for (const int percent : {79, 77, 75}) {
    bench.charge(percent);
    bench.run(5);
    EXPECT_EQ(bench.key("CHTE"), paused) << percent;
  }
  bench.charge(74);
  bench.run(5);
  EXPECT_EQ(bench.key("CHTE"), resumed);
  for (const int percent : {75, 79}) {
    bench.charge(percent);
    bench.run(5);
    EXPECT_EQ(bench.key("CHTE"), resumed) << percent;
  }
  EXPECT_THAT(bench.logs(), ElementsAre("default charge enforcement pause:ok",
                                        "default charge enforcement resume:ok"));
}

TEST(EnforcementTest, TicksAtOnceAndThenEveryFiveSeconds) {
  Bench bench;
  bench.charge(60);
  bench.boot();
  bench.run(1.5);
  std::vector<double> ticks;
  bench.world.faults().observe([&](SeamCall call) {
    if (call == SeamCall::powerSourcesCopyInfo) ticks.push_back(bench.world.now());
  });
  bench.call(bench.app->setChargeLimit(80));
  bench.run(16);
  EXPECT_THAT(ticks, ElementsAre(1.5, 6.5, 11.5, 16.5));
}

TEST(EnforcementTest, UnpluggedAdapterMeansNoWriteEvenAboveTheLimit) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(90);
  bench.mac().adapter.disconnect();
  bench.run(30);
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_THAT(bench.logs(), IsEmpty());
}

TEST(EnforcementTest, UnknownAdapterOrChargeMeansNoWrite) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.chargeUnreadable();
  bench.run(30);
  bench.charge(90);
  bench.adapterUnknown();
  bench.run(30);
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_THAT(bench.logs(), IsEmpty());
}

TEST(EnforcementTest, HandsBackAtHundredEvenOnBatteryAndWithoutAReading) {
  Bench bench;
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.chargeUnreadable();
  bench.mac().adapter.disconnect();
  bench.boot();
  bench.call(bench.app->setChargeLimit(100));
  EXPECT_EQ(bench.key("CHTE"), resumed);
  EXPECT_EQ(bench.logs().back(),
            "default 100% target — returned charging to macOS and stopped enforcement");
}

TEST(EnforcementTest, HandBackRetriesSilentlyUntilItSucceeds) {
  Bench bench;
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.boot();
  bench.call(bench.app->setChargeLimit(100));
  bench.mark();
  bench.run(10);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 00 00 00 00 refused (result 134)",
                                              "smc CHTE <- 00 00 00 00 refused (result 134)"));
  EXPECT_THAT(bench.logs(), IsEmpty()) << "a failed hand-back is not reported";
  bench.mac().smc.key("CHTE")->writeResult.reset();
  bench.run(5);
  EXPECT_EQ(bench.logs().back(),
            "default 100% target — returned charging to macOS and stopped enforcement");
}

TEST(EnforcementTest, HandBackKeepsRunningWhileTheResumeIsNotVerified) {
  Bench bench;
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.mac().smc.key("CHTE")->silentlyRefuses = true;
  bench.boot();
  bench.call(bench.app->setChargeLimit(100));
  bench.mark();
  bench.run(10);
  EXPECT_EQ(bench.since("smc").size(), 2U);
  EXPECT_THAT(bench.logs(), IsEmpty());
  bench.mac().smc.key("CHTE")->silentlyRefuses = false;
  bench.run(5);
  EXPECT_EQ(bench.logs().back(),
            "default 100% target — returned charging to macOS and stopped enforcement");
}

TEST(EnforcementTest, OlderPairIsWrittenInOrderAndBothHalvesAlways) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.run(5);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0B <- 02", "smc CH0C <- 02"));
  bench.mark();
  bench.charge(40);
  bench.mac().smc.key("CH0B")->writeResult = 134;
  bench.run(5);
  EXPECT_THAT(bench.since("smc"),
              ElementsAre("smc CH0B <- 00 refused (result 134)", "smc CH0C <- 00"));
  EXPECT_THAT(bench.logs(),
              ElementsAre("fault SMC write unverified — read-back disagreed; capability may be "
                          "silently rejected by firmware",
                          "error charge enforcement resume:kSMCWriteKey failed (kIOReturn=0, "
                          "smcResult=134) — limit is NOT being applied"));
}

TEST(EnforcementTest, OlderPairReportsTheFirstFailureElseTheSecond) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.mac().smc.key("CH0B")->writeResult = 130;
  bench.mac().smc.key("CH0C")->writeResult = 131;
  bench.run(5);
  EXPECT_THAT(bench.logs().back(), ::testing::HasSubstr("smcResult=130"));
  bench.mac().smc.key("CH0B")->writeResult.reset();
  bench.run(5);
  EXPECT_THAT(bench.logs().back(), ::testing::HasSubstr("smcResult=131"));
}

TEST(EnforcementTest, MachineWithBothFamiliesUsesOnlyTheNewerKey) {
  Bench bench("both-families");
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.run(5);
  bench.charge(40);
  bench.run(5);
  EXPECT_THAT(bench.since("smc"),
              ElementsAre("smc CHTE <- 01 00 00 00", "smc CHTE <- 00 00 00 00"));
}

TEST(EnforcementTest, NativeLimitIsTheSavedLimitWhenPausedAndNoneWhenResumed) {
  Bench bench("native-only");
  bench.bootWithLimit(85);
  bench.charge(90);
  bench.run(5);
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 85);
  bench.charge(70);
  bench.run(5);
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 0);
  EXPECT_THAT(bench.logs(), ElementsAre("default charge enforcement pause:ok",
                                        "default charge enforcement resume:ok"));
}

TEST(EnforcementTest, NativePauseUsesTheRecordsLimitNotTheLoopsTarget) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.charge(95);
  bench.run(5);
  bench.mac().disk.replaceFails = true;
  bench.call(bench.app->setChargeLimit(90));
  // The failed replacement took the record back to 80 while the new loop runs with 90.
  EXPECT_EQ(bench.state().chargeLimit, 80);
  bench.run(5);
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 80);
}

TEST(EnforcementTest, NativeFailureIsAFaultAFalseFlagAndAnOutcome) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.charge(90);
  bench.mac().powerUI.setError = "not today";
  bench.run(5);
  EXPECT_THAT(
      bench.logs(),
      ElementsAre("fault SMC write unverified — read-back disagreed; capability may be silently "
                  "rejected by firmware",
                  "fault PowerUI native charge write failed: PowerUI call failed: not today",
                  "error charge enforcement pause:Native charge control failed: PowerUI call "
                  "failed: not today — limit is NOT being applied"));
  EXPECT_FALSE(bench.state().lastWriteVerified);
}

TEST(EnforcementTest, NativeLimitThatReadsBackDifferentlyIsUnverifiedButOk) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.charge(90);
  bench.mac().powerUI.keepsOldLimit = true;
  bench.run(5);
  EXPECT_EQ(bench.logs().back(), "default charge enforcement pause:ok");
  EXPECT_FALSE(bench.state().lastWriteVerified);
}

TEST(EnforcementTest, MachineWithoutAnyControlFailsAndSaysSoOnce) {
  Bench bench("no-control");
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.run(60);
  EXPECT_THAT(bench.logs(),
              ElementsAre("error charge enforcement pause:AppleSMC service unavailable — limit is "
                          "NOT being applied"));
  bench.mark();
  bench.charge(40);
  bench.run(60);
  EXPECT_THAT(bench.logs(),
              ElementsAre("error charge enforcement resume:AppleSMC service unavailable — limit is "
                          "NOT being applied"));
}

TEST(EnforcementTest, OutcomeIsLoggedOnlyWhenItChanges) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.run(60);
  bench.mac().smc.setValue("CHTE", {0, 0, 0, 0});
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.run(60);
  bench.mac().smc.key("CHTE")->writeResult = 130;
  bench.run(60);
  bench.mac().smc.key("CHTE")->writeResult.reset();
  bench.run(60);
  Lines outcomes;
  for (const std::string& line : bench.logs()) {
    if (line.find("charge enforcement") != std::string::npos) outcomes.push_back(line);
  }
  EXPECT_THAT(outcomes,
              ElementsAre("default charge enforcement pause:ok",
                          "error charge enforcement pause:kSMCWriteKey failed (kIOReturn=0, "
                          "smcResult=134) — limit is NOT being applied",
                          "error charge enforcement pause:kSMCWriteKey failed (kIOReturn=0, "
                          "smcResult=130) — limit is NOT being applied",
                          "default charge enforcement pause:ok"));
}

TEST(EnforcementTest, LoopKeepsTheTargetOfItsStartWhenOnlyTheRecordChanges) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(70);
  bench.run(5);
  bench.mac().disk.replaceFails = true;
  bench.call(bench.app->setChargeLimit(60));
  EXPECT_EQ(bench.state().chargeLimit, 80);
  EXPECT_EQ(bench.key("CHTE"), paused) << "the loop runs with 60 though the record says 80";
  bench.mark();
  bench.run(30);
  EXPECT_EQ(bench.key("CHTE"), paused);
}

TEST(EnforcementTest, TargetOutOfRangeStopsTheLoop) {
  // Only a discharge starts a loop on whatever the record says.
  for (const int target : {10, 19, 101}) {
    Bench bench;
    bench.saveState(savedLimit(target));
    bench.charge(120);
    bench.boot();
    ASSERT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
    EXPECT_EQ(bench.logs().back(),
              "fault pollOnce: target " + std::to_string(target) + " out of range — stopping loop");
    const auto before = bench.world.callCounts();
    bench.run(30);
    EXPECT_EQ((bench.world.callCounts() - before).text(), "") << target;
  }
}

TEST(EnforcementTest, TargetOutOfRangeWritesNothing) {
  // Cancelling a top-off also starts a loop on whatever the record says, and no discharge runs.
  for (const int target : {-5, 10, 19, 101}) {
    Bench bench;
    bench.saveState(savedLimit(target));
    bench.charge(120);  // Every one of them would pause.
    bench.boot();
    bench.call(bench.app->releaseLimitUntilFullThenRestore());
    bench.mark();
    bench.call(bench.app->cancelTopUp());
    EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "cancelTopUp"),
                                          "fault pollOnce: target " + std::to_string(target) +
                                              " out of range — stopping loop"));
    EXPECT_THAT(bench.since("smc"), IsEmpty()) << target;
    EXPECT_EQ(bench.key("CHTE"), resumed) << target;
  }
}

TEST(EnforcementTest, HeatPauseIsNeverSetByAnything) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootArmedDischarge();
  bench.temperature(60);
  bench.mac().lid.close();
  bench.run(60);
  EXPECT_FALSE(bench.state().heatPauseActive);
  bench.charge(95);
  bench.run(60);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.run(60);
  EXPECT_FALSE(bench.onDisk().heatPauseActive);
}

TEST(EnforcementTest, FailedCapabilityKeyIsRetriedOnEveryTick) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.run(15);
  EXPECT_EQ(bench.mac().smc.writeCount("CHTE"), 3U);
}

/// One world per band (only the record carries one), every zone's edges of several limits.
class SampledEnforcementTest : public ::testing::TestWithParam<int> {};

TEST_P(SampledEnforcementTest, CoreDoesWhatTheDecisionSays) {
  const int band = GetParam();
  Bench bench;
  HelperState record = savedLimit(50);
  record.sailingBand = band;
  bench.saveState(record);
  bench.boot();
  for (const int limit : {20, 21, 50, 80, 99}) {
    bench.call(bench.app->setChargeLimit(static_cast<std::uint8_t>(limit)));
    const auto width = static_cast<int>(effectiveBand(band, limit));
    for (const int percent : {0, 1, limit - width - 1, limit - width, limit - 1, limit, 100}) {
      for (const int before : {0, 1}) {
        bench.mac().smc.setValue("CHTE", {static_cast<std::uint8_t>(before), 0, 0, 0});
        bench.charge(percent);
        bench.run(5);
        const GateDecision decision = decideGate(limit, band, percent, true);
        const bool pausedNow =
            decision == GateDecision::Hold ? before == 1 : decision == GateDecision::Pause;
        EXPECT_EQ(bench.key("CHTE"), pausedNow ? paused : resumed)
            << "limit " << limit << " band " << band << " charge " << percent;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Bands, SampledEnforcementTest,
                         ::testing::Values(-5, 0, 1, 5, 19, 20, 25, 30));

}  // namespace
}  // namespace korvel::test
