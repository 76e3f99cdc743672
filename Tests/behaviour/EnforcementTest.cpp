// The polling loop pauses, resumes or leaves the gate alone; these tests say when, through which
// control and with which log lines.

#include <array>

#include "EnforcementDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* paused = "01 00 00 00";
constexpr const char* resumed = "00 00 00 00";

using EnforcementTest = OnBench;

TEST_F(EnforcementTest, PausesAtExactlyTheLimit) {
  bootWithLimit(80);
  tickAt(80);
  EXPECT_EQ(key("CHTE"), paused);
  EXPECT_THAT(logs(), ElementsAre("default charge enforcement pause:ok"));
}

TEST_F(EnforcementTest, HoldsInsideTheBandAndResumesOneBelowIt) {
  bootWithLimit(80);
  tickAt(85);
  ASSERT_EQ(key("CHTE"), paused);
  for (const int percent : {79, 77, 75}) {
    tickAt(percent);
    EXPECT_EQ(key("CHTE"), paused) << percent;
  }
  tickAt(74);
  EXPECT_EQ(key("CHTE"), resumed);
  for (const int percent : {75, 79}) {
    tickAt(percent);
    EXPECT_EQ(key("CHTE"), resumed) << percent;
  }
  EXPECT_THAT(logs(), ElementsAre("default charge enforcement pause:ok",
                                  "default charge enforcement resume:ok"));
}

TEST_F(EnforcementTest, TicksAtOnceAndThenEveryFiveSeconds) {
  bootAt(60);
  run(1.5);
  const auto& ticks = noteTicks();
  call(app->setChargeLimit(80));
  run(16);
  EXPECT_THAT(ticks, ElementsAre(1.5, 6.5, 11.5, 16.5));
}

TEST_F(EnforcementTest, UnpluggedAdapterMeansNoWriteEvenAboveTheLimit) {
  bootWithLimit(50, 90);
  mac().adapter.disconnect();
  run(30);
  EXPECT_THAT(since("smc"), IsEmpty());
  EXPECT_THAT(logs(), IsEmpty());
}

TEST_F(EnforcementTest, UnknownAdapterOrChargeMeansNoWrite) {
  bootWithLimit(50);
  chargeUnreadable();
  run(30);
  charge(90);
  adapterUnknown();
  run(30);
  EXPECT_THAT(since("smc"), IsEmpty());
  EXPECT_THAT(logs(), IsEmpty());
}

TEST_F(EnforcementTest, HandsBackAtHundredEvenOnBatteryAndWithoutAReading) {
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  chargeUnreadable();
  mac().adapter.disconnect();
  boot();
  call(app->setChargeLimit(100));
  EXPECT_EQ(key("CHTE"), resumed);
  EXPECT_EQ(logs().back(),
            "default 100% target — returned charging to macOS and stopped enforcement");
}

TEST_F(EnforcementTest, HandBackRetriesSilentlyUntilItSucceeds) {
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  mac().smc.key("CHTE")->writeResult = 134;
  boot();
  call(app->setChargeLimit(100));
  mark();
  run(10);
  EXPECT_THAT(since("smc"), ElementsAre("smc CHTE <- 00 00 00 00 refused (result 134)",
                                        "smc CHTE <- 00 00 00 00 refused (result 134)"));
  EXPECT_THAT(logs(), IsEmpty()) << "a failed hand-back is not reported";
  mac().smc.key("CHTE")->writeResult.reset();
  run(5);
  EXPECT_EQ(logs().back(),
            "default 100% target — returned charging to macOS and stopped enforcement");
}

TEST_F(EnforcementTest, HandBackKeepsRunningWhileTheResumeIsNotVerified) {
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  mac().smc.key("CHTE")->silentlyRefuses = true;
  boot();
  call(app->setChargeLimit(100));
  mark();
  run(10);
  EXPECT_EQ(since("smc").size(), 2U);
  EXPECT_THAT(logs(), IsEmpty());
  mac().smc.key("CHTE")->silentlyRefuses = false;
  run(5);
  EXPECT_EQ(logs().back(),
            "default 100% target — returned charging to macOS and stopped enforcement");
}

TEST_F(EnforcementTest, OlderPairIsWrittenInOrderAndBothHalvesAlways) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  bench.tickAt(70);
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

TEST_F(EnforcementTest, OlderPairReportsTheFirstFailureElseTheSecond) {
  Bench bench("older-pair");
  bench.bootWithLimit(50, 70);
  bench.mac().smc.key("CH0B")->writeResult = 130;
  bench.mac().smc.key("CH0C")->writeResult = 131;
  bench.run(5);
  EXPECT_THAT(bench.logs().back(), ::testing::HasSubstr("smcResult=130"));
  bench.mac().smc.key("CH0B")->writeResult.reset();
  bench.run(5);
  EXPECT_THAT(bench.logs().back(), ::testing::HasSubstr("smcResult=131"));
}

TEST_F(EnforcementTest, MachineWithBothFamiliesUsesOnlyTheNewerKey) {
  Bench bench("both-families");
  bench.bootWithLimit(50);
  bench.tickAt(70);
  bench.tickAt(40);
  EXPECT_THAT(bench.since("smc"),
              ElementsAre("smc CHTE <- 01 00 00 00", "smc CHTE <- 00 00 00 00"));
}

TEST_F(EnforcementTest, NativeLimitIsTheSavedLimitWhenPausedAndNoneWhenResumed) {
  Bench bench("native-only");
  bench.bootWithLimit(85);
  bench.tickAt(90);
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 85);
  bench.tickAt(70);
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 0);
  EXPECT_THAT(bench.logs(), ElementsAre("default charge enforcement pause:ok",
                                        "default charge enforcement resume:ok"));
}

TEST_F(EnforcementTest, NativePauseUsesTheRecordsLimitNotTheLoopsTarget) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.tickAt(95);
  bench.mac().disk.replaceFails = true;
  bench.call(bench.app->setChargeLimit(90));
  // The failed replacement reverted the record to 80, but the new loop runs with 90.
  EXPECT_EQ(bench.state().chargeLimit, 80);
  bench.run(5);
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 80);
}

TEST_F(EnforcementTest, NativeFailureIsAFaultAFalseFlagAndAnOutcome) {
  Bench bench("native-only");
  bench.bootWithLimit(80, 90);
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

TEST_F(EnforcementTest, NativeLimitThatReadsBackDifferentlyIsUnverifiedButOk) {
  Bench bench("native-only");
  bench.bootWithLimit(80, 90);
  bench.mac().powerUI.keepsOldLimit = true;
  bench.run(5);
  EXPECT_EQ(bench.logs().back(), "default charge enforcement pause:ok");
  EXPECT_FALSE(bench.state().lastWriteVerified);
}

TEST_F(EnforcementTest, MachineWithoutAnyControlFailsAndSaysSoOnce) {
  Bench bench("no-control");
  bench.bootWithLimit(50, 70);
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

TEST_F(EnforcementTest, OutcomeIsLoggedOnlyWhenItChanges) {
  bootWithLimit(50, 70);
  run(60);
  mac().smc.setValue("CHTE", {0, 0, 0, 0});
  mac().smc.key("CHTE")->writeResult = 134;
  run(60);
  mac().smc.key("CHTE")->writeResult = 130;
  run(60);
  mac().smc.key("CHTE")->writeResult.reset();
  run(60);
  Lines outcomes;
  for (const std::string& line : logs()) {
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

TEST_F(EnforcementTest, LoopKeepsTheTargetOfItsStartWhenOnlyTheRecordChanges) {
  bootWithLimit(80);
  tickAt(70);
  mac().disk.replaceFails = true;
  call(app->setChargeLimit(60));
  EXPECT_EQ(state().chargeLimit, 80);
  EXPECT_EQ(key("CHTE"), paused) << "the loop runs with 60 though the record says 80";
  mark();
  run(30);
  EXPECT_EQ(key("CHTE"), paused);
}

TEST_F(EnforcementTest, TargetOutOfRangeStopsTheLoop) {
  // Only a discharge starts a loop on whatever the record says.
  for (const int target : {10, 19, 101}) {
    Bench bench;
    bench.saveState(savedLimit(target));
    bench.bootAt(120);
    ASSERT_EQ(bench.ask(bench.app->forceDischarge(true)), "ok");
    EXPECT_EQ(bench.logs().back(),
              "fault pollOnce: target " + std::to_string(target) + " out of range — stopping loop");
    EXPECT_EQ(bench.callsDuring(30).text(), "") << target;
  }
}

TEST_F(EnforcementTest, TargetOutOfRangeWritesNothing) {
  // Cancelling a top-off also starts a loop on whatever the record says, and no discharge runs.
  for (const int target : {-5, 10, 19, 101}) {
    Bench bench;
    bench.saveState(savedLimit(target));
    bench.charge(120);  // Each of these limits would pause the gate.
    bench.boot();
    bench.call(bench.app->releaseLimitUntilFullThenRestore());
    bench.mark();
    bench.call(bench.app->cancelTopUp());
    EXPECT_THAT(bench.logs(), ElementsAre(bench.audit("cancelTopUp"),
                                          "fault pollOnce: target " + std::to_string(target) +
                                              " out of range — stopping loop"));
    EXPECT_THAT(bench.since("smc"), IsEmpty()) << target;
    EXPECT_EQ(bench.key("CHTE"), resumed) << target;
  }
}

TEST_F(EnforcementTest, HeatPauseIsNeverSetByAnything) {
  bootDockedDischarge();
  temperature(60);
  mac().lid.close();
  run(60);
  EXPECT_FALSE(state().heatPauseActive);
  charge(95);
  run(60);
  call(app->releaseLimitUntilFullThenRestore());
  run(60);
  EXPECT_FALSE(onDisk().heatPauseActive);
}

TEST_F(EnforcementTest, FailedCapabilityKeyIsRetriedOnEveryTick) {
  bootWithLimit(50, 70);
  mac().smc.key("CHTE")->writeResult = 134;
  run(15);
  EXPECT_EQ(mac().smc.writeCount("CHTE"), 3U);
}

/// Uses one world per band, since only the record can set one, and several limits in each.
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
        bench.tickAt(percent);
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
