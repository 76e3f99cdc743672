// The helper sets, clears and saves the limit, and remembers whether the hardware took a write.

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

using ChargeLimitTest = OnBench;

TEST_F(ChargeLimitTest, NineteenAndHundredAndOneAreRefusedWithoutAnyEffect) {
  boot();
  EXPECT_EQ(ask(app->setChargeLimit(19)),
            "failed 400 Charge limit must be between 20 and 100 (got 19).");
  EXPECT_EQ(ask(app->setChargeLimit(101)),
            "failed 400 Charge limit must be between 20 and 100 (got 101).");
  EXPECT_EQ(ask(app->setChargeLimit(0)),
            "failed 400 Charge limit must be between 20 and 100 (got 0).");
  EXPECT_EQ(ask(app->setChargeLimit(255)),
            "failed 400 Charge limit must be between 20 and 100 (got 255).");
  EXPECT_THAT(since("smc disk"), IsEmpty());
  EXPECT_THAT(logs(), ElementsAre(audit("setChargeLimit(19)"), audit("setChargeLimit(101)"),
                                  audit("setChargeLimit(0)"), audit("setChargeLimit(255)")));
  EXPECT_EQ(state().chargeLimit, 80);
}

TEST_F(ChargeLimitTest, TwentyAndHundredAreAccepted) {
  boot();
  EXPECT_EQ(ask(app->setChargeLimit(20)), "ok");
  EXPECT_EQ(onDisk().chargeLimit, 20);
  EXPECT_EQ(ask(app->setChargeLimit(100)), "ok");
  EXPECT_EQ(onDisk().chargeLimit, 100);
}

TEST_F(ChargeLimitTest, RecordReachesTheDiskBeforeTheReplyAndTheFirstTickFollowsIt) {
  boot();
  charge(80);
  call(app->setChargeLimit(80));
  EXPECT_THAT(timed("smc disk log reply"),
              ElementsAre("0.000 log   HelperImpl default \"" +
                              audit("setChargeLimit(80)").substr(8) + "\"",
                          "0.000 disk  state.json replaced: lastWriteAt=2026-01-01T00:00:00Z",
                          "0.000 reply setChargeLimit ok", "0.000 smc   CHTE <- 01 00 00 00",
                          "0.000 log   SMCWriter default \"SMC write CHTE bytes=[1, 0, 0, 0]\"",
                          "0.000 log   HelperImpl default \"charge enforcement pause:ok\""));
}

TEST_F(ChargeLimitTest, HundredIsPersistedThenResumesChargingAndStopsTheLoop) {
  bootWithLimit(50);
  tickAt(70);
  ASSERT_EQ(key("CHTE"), "01 00 00 00");
  mark();
  call(app->setChargeLimit(100));
  EXPECT_EQ(key("CHTE"), "00 00 00 00");
  EXPECT_EQ(onDisk().chargeLimit, 100);
  EXPECT_THAT(logs(), ElementsAre(audit("setChargeLimit(100)"),
                                  "default 100% target — returned charging to macOS and stopped "
                                  "enforcement"));
  EXPECT_EQ(callsDuring(60).text(), "") << "the loop still runs";
}

TEST_F(ChargeLimitTest, RepeatedLimitRestartsTheTimerAndWritesTheRecordAgain) {
  bootWithLimit(80);
  run(3);
  mark();
  const auto before = world.callCounts();
  call(app->setChargeLimit(80));
  EXPECT_EQ((world.callCounts() - before)[SeamCall::powerSourcesCopyInfo], 1U) << "no tick at once";
  EXPECT_THAT(since("disk"),
              ElementsAre("disk state.json replaced: lastWriteAt=2026-01-01T00:00:03Z"));
  EXPECT_EQ(callsDuring(4.999)[SeamCall::powerSourcesCopyInfo], 0U) << "the old timer still fires";
  EXPECT_EQ(callsDuring(0.001)[SeamCall::powerSourcesCopyInfo], 1U);
}

TEST_F(ChargeLimitTest, SetKeepsBandAndDischargeAndClearsHeatPauseAndTopUp) {
  HelperState record = savedLimit(70);
  record.sailingBand = 9;
  record.heatPauseActive = true;
  saveState(record);
  bootAt(72);
  ASSERT_TRUE(state().heatPauseActive);
  call(app->releaseLimitUntilFullThenRestore());
  ASSERT_TRUE(state().topUpActive);
  call(app->setChargeLimit(60));
  const HelperState after = onDisk();
  EXPECT_EQ(after.chargeLimit, 60);
  EXPECT_EQ(after.sailingBand, 9);
  EXPECT_FALSE(after.heatPauseActive);
  EXPECT_FALSE(after.topUpActive);

  call(app->forceDischarge(true));
  call(app->setChargeLimit(50));
  EXPECT_TRUE(onDisk().forceDischargeActive);
}

TEST_F(ChargeLimitTest, BandSurvivesEveryCommand) {
  HelperState record = savedLimit(50);
  record.sailingBand = 23;
  saveState(record);
  bootAt(70);
  for (const auto& [name, command] : everyCommand()) {
    ASSERT_EQ(ask(command(*app)), "ok") << name;
    EXPECT_EQ(onDisk().sailingBand, 23) << name;
    EXPECT_EQ(state().sailingBand, 23) << name;
  }
}

TEST_F(ChargeLimitTest, ReplyDoesNotReportTheFirstHardwareWrite) {
  boot();
  charge(90);
  mac().smc.key("CHTE")->writeResult = 134;
  EXPECT_EQ(ask(app->setChargeLimit(80)), "ok");
  EXPECT_THAT(logs().back(),
              "error charge enforcement pause:kSMCWriteKey failed (kIOReturn=0, smcResult=134) — "
              "limit is NOT being applied");
  EXPECT_FALSE(state().lastWriteVerified);
}

TEST_F(ChargeLimitTest, ClearResumesReleasesTheInflowAndKeepsTheLimit) {
  bootDischarging();
  ASSERT_EQ(key("CHIE"), "08");
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  mark();
  run(1);
  call(app->clearChargeLimit());
  EXPECT_THAT(since("smc disk power reply"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false "
                          "lastWriteAt=2026-01-01T00:00:01Z",
                          "reply clearChargeLimit ok"));
  EXPECT_THAT(logs(), ElementsAre(audit("clearChargeLimit")));
  const HelperState after = state();
  EXPECT_EQ(after.chargeLimit, 50);
  EXPECT_FALSE(after.lastDischargeAbortReason.has_value());
  EXPECT_EQ(callsDuring(30).text(), "") << "a timer still runs";
}

TEST_F(ChargeLimitTest, ClearDisarmsKeepAwakeBeforeItResumes) {
  bootArmedDischarge();
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  call(app->clearChargeLimit());
  EXPECT_THAT(since("smc power"),
              ElementsAre("power SleepDisabled = 0", "smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "power assertion 33001 released", "power assertion 33002 released"));
}

TEST_F(ChargeLimitTest, ClearOnTheOlderFamilyReleasesBothDischargeKeysInReverse) {
  Bench bench("older-pair");
  bench.boot();
  bench.call(bench.app->clearChargeLimit());
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
}

TEST_F(ChargeLimitTest, ClearEndsASavedHeatPause) {
  bootHeatPaused();
  call(app->clearChargeLimit());
  EXPECT_FALSE(state().heatPauseActive);
  EXPECT_FALSE(onDisk().heatPauseActive);
}

TEST_F(ChargeLimitTest, ClearReportsAFailedResumeButStillUpdatesAndPersists) {
  bootDischarging();
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  mac().smc.key("CHTE")->writeResult = 134;
  EXPECT_EQ(ask(app->clearChargeLimit()),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_FALSE(onDisk().forceDischargeActive);
  EXPECT_EQ(key("CHIE"), "00");
}

TEST_F(ChargeLimitTest, ClearIgnoresAFailedDischargeKey) {
  boot();
  mac().smc.key("CHIE")->writeResult = 134;
  EXPECT_EQ(ask(app->clearChargeLimit()), "ok");
}

TEST_F(ChargeLimitTest, ClearKeepsTheLimitForTheNextClientToArm) {
  bootWithLimit(55);
  call(app->clearChargeLimit());
  mark();
  const auto second = connectAnother();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=2)",
                                  "default client connect — arming polling loop at "
                                  "limit=55"));
}

TEST_F(ChargeLimitTest, UnverifiedWriteIsReportedOnceAndRemembered) {
  bootWithLimit(50, 70);
  mac().smc.key("CHTE")->silentlyRefuses = true;
  run(5);
  EXPECT_THAT(logs(), ElementsAre("fault SMC write unverified — read-back disagreed; "
                                  "capability may be silently rejected by firmware",
                                  "default charge enforcement pause:ok"));
  EXPECT_THAT(since("disk"), ElementsAre("disk state.json replaced: lastWriteVerified=false"));
  mark();
  run(60);
  EXPECT_THAT(since("log disk reply"),
              ::testing::Each(::testing::HasSubstr("SMC write CHTE bytes")))
      << "a lasting failure is logged or persisted again";
  mac().smc.key("CHTE")->silentlyRefuses = false;
  mark();
  run(5);
  EXPECT_THAT(since("disk"), ElementsAre("disk state.json replaced: lastWriteVerified=true"));
  EXPECT_THAT(logs(), IsEmpty());
}

TEST_F(ChargeLimitTest, OlderPairIsVerifiedOnlyWhenBothOfItsKeysAre) {
  for (const std::string refusing : {"CH0B", "CH0C"}) {
    Bench bench("older-pair");
    bench.bootWithLimit(50, 70);
    bench.mac().smc.key(refusing)->silentlyRefuses = true;
    bench.run(5);
    EXPECT_EQ(bench.logs().back(), "default charge enforcement pause:ok") << refusing;
    EXPECT_FALSE(bench.onDisk().lastWriteVerified) << refusing;
    bench.mac().smc.key(refusing)->silentlyRefuses = false;
    bench.run(5);
    EXPECT_TRUE(bench.onDisk().lastWriteVerified) << refusing;
  }
}

TEST_F(ChargeLimitTest, VerifiedWriteOverAVerifiedRecordDoesNotTouchTheDisk) {
  bootWithLimit(50);
  tickAt(70);
  EXPECT_THAT(since("smc disk"), ElementsAre("smc CHTE <- 01 00 00 00"));
}

}  // namespace
}  // namespace korvel::test
