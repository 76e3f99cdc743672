// Setting and clearing the limit, persisting, and remembering whether the hardware took a write.

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

TEST(ChargeLimitTest, NineteenAndHundredAndOneAreRefusedWithoutAnyEffect) {
  Bench bench;
  bench.boot();
  EXPECT_EQ(outcome(bench.call(bench.app->setChargeLimit(19))),
            "failed 400 Charge limit must be between 20 and 100 (got 19).");
  EXPECT_EQ(outcome(bench.call(bench.app->setChargeLimit(101))),
            "failed 400 Charge limit must be between 20 and 100 (got 101).");
  EXPECT_EQ(outcome(bench.call(bench.app->setChargeLimit(0))),
            "failed 400 Charge limit must be between 20 and 100 (got 0).");
  EXPECT_EQ(outcome(bench.call(bench.app->setChargeLimit(255))),
            "failed 400 Charge limit must be between 20 and 100 (got 255).");
  EXPECT_THAT(bench.since("smc disk"), IsEmpty());
  EXPECT_THAT(bench.logs(),
              ElementsAre(audit(bench, "setChargeLimit(19)"), audit(bench, "setChargeLimit(101)"),
                          audit(bench, "setChargeLimit(0)"), audit(bench, "setChargeLimit(255)")));
  EXPECT_EQ(bench.state().chargeLimit, 80);
}

TEST(ChargeLimitTest, TwentyAndHundredAreAccepted) {
  Bench bench;
  bench.boot();
  EXPECT_EQ(outcome(bench.call(bench.app->setChargeLimit(20))), "ok");
  EXPECT_EQ(bench.onDisk().chargeLimit, 20);
  EXPECT_EQ(outcome(bench.call(bench.app->setChargeLimit(100))), "ok");
  EXPECT_EQ(bench.onDisk().chargeLimit, 100);
}

TEST(ChargeLimitTest, RecordReachesTheDiskBeforeTheReplyAndTheFirstTickFollowsIt) {
  Bench bench;
  bench.boot();
  bench.charge(80);
  bench.call(bench.app->setChargeLimit(80));
  EXPECT_THAT(bench.timed("smc disk log reply"),
              ElementsAre("0.000 log   HelperImpl default \"" +
                              audit(bench, "setChargeLimit(80)").substr(8) + "\"",
                          "0.000 disk  state.json replaced: lastWriteAt=2026-01-01T00:00:00Z",
                          "0.000 reply setChargeLimit ok", "0.000 smc   CHTE <- 01 00 00 00",
                          "0.000 log   SMCWriter default \"SMC write CHTE bytes=[1, 0, 0, 0]\"",
                          "0.000 log   HelperImpl default \"charge enforcement pause:ok\""));
}

TEST(ChargeLimitTest, HundredIsPersistedThenResumesChargingAndStopsTheLoop) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.run(5);
  ASSERT_EQ(bench.key("CHTE"), "01 00 00 00");
  bench.mark();
  bench.call(bench.app->setChargeLimit(100));
  EXPECT_EQ(bench.key("CHTE"), "00 00 00 00");
  EXPECT_EQ(bench.onDisk().chargeLimit, 100);
  EXPECT_THAT(bench.logs(),
              ElementsAre(audit(bench, "setChargeLimit(100)"),
                          "default 100% target — returned charging to macOS and stopped "
                          "enforcement"));
  const auto reads = bench.world.callCounts();
  bench.run(60);
  EXPECT_EQ((bench.world.callCounts() - reads).text(), "") << "the loop still runs";
}

TEST(ChargeLimitTest, RepeatedLimitRestartsTheTimerAndWritesTheRecordAgain) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.run(3);
  bench.mark();
  const auto before = bench.world.callCounts();
  bench.call(bench.app->setChargeLimit(80));
  EXPECT_EQ((bench.world.callCounts() - before)[SeamCall::powerSourcesCopyInfo], 1U)
      << "no tick at once";
  EXPECT_THAT(bench.since("disk"),
              ElementsAre("disk state.json replaced: lastWriteAt=2026-01-01T00:00:03Z"));
  const auto after = bench.world.callCounts();
  bench.run(4.999);
  EXPECT_EQ((bench.world.callCounts() - after)[SeamCall::powerSourcesCopyInfo], 0U)
      << "the old timer still fires";
  bench.run(0.001);
  EXPECT_EQ((bench.world.callCounts() - after)[SeamCall::powerSourcesCopyInfo], 1U);
}

TEST(ChargeLimitTest, SetKeepsBandAndDischargeAndClearsHeatPauseAndTopUp) {
  Bench bench;
  HelperState record = savedLimit(70);
  record.sailingBand = 9;
  record.heatPauseActive = true;
  bench.saveState(record);
  bench.charge(72);
  bench.boot();
  ASSERT_TRUE(bench.state().heatPauseActive);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  ASSERT_TRUE(bench.state().topUpActive);
  bench.call(bench.app->setChargeLimit(60));
  const HelperState after = bench.onDisk();
  EXPECT_EQ(after.chargeLimit, 60);
  EXPECT_EQ(after.sailingBand, 9);
  EXPECT_FALSE(after.heatPauseActive);
  EXPECT_FALSE(after.topUpActive);

  bench.call(bench.app->forceDischarge(true));
  bench.call(bench.app->setChargeLimit(50));
  EXPECT_TRUE(bench.onDisk().forceDischargeActive);
}

TEST(ChargeLimitTest, BandSurvivesEveryCommand) {
  Bench bench;
  HelperState record = savedLimit(50);
  record.sailingBand = 23;
  bench.saveState(record);
  bench.charge(70);
  bench.boot();
  for (const auto& [name, command] : everyCommand()) {
    ASSERT_EQ(outcome(bench.call(command(*bench.app))), "ok") << name;
    EXPECT_EQ(bench.onDisk().sailingBand, 23) << name;
    EXPECT_EQ(bench.state().sailingBand, 23) << name;
  }
}

TEST(ChargeLimitTest, ReplyDoesNotReportTheFirstHardwareWrite) {
  Bench bench;
  bench.boot();
  bench.charge(90);
  bench.mac().smc.key("CHTE")->writeResult = 134;
  EXPECT_EQ(outcome(bench.call(bench.app->setChargeLimit(80))), "ok");
  EXPECT_THAT(bench.logs().back(),
              "error charge enforcement pause:kSMCWriteKey failed (kIOReturn=0, smcResult=134) — "
              "limit is NOT being applied");
  EXPECT_FALSE(bench.state().lastWriteVerified);
}

TEST(ChargeLimitTest, ClearResumesReleasesTheInflowAndKeepsTheLimit) {
  Bench bench;
  bench.bootDischarging();
  ASSERT_EQ(bench.key("CHIE"), "08");
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.mark();
  bench.run(1);
  bench.call(bench.app->clearChargeLimit());
  EXPECT_THAT(bench.since("smc disk power reply"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false "
                          "lastWriteAt=2026-01-01T00:00:01Z",
                          "reply clearChargeLimit ok"));
  EXPECT_THAT(bench.logs(), ElementsAre(audit(bench, "clearChargeLimit")));
  const HelperState after = bench.state();
  EXPECT_EQ(after.chargeLimit, 50);
  EXPECT_FALSE(after.lastDischargeAbortReason.has_value());
  const auto before = bench.world.callCounts();
  bench.run(30);
  EXPECT_EQ((bench.world.callCounts() - before).text(), "") << "a timer still runs";
}

TEST(ChargeLimitTest, ClearDisarmsKeepAwakeBeforeItResumes) {
  Bench bench;
  bench.bootArmedDischarge();
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.call(bench.app->clearChargeLimit());
  EXPECT_THAT(bench.since("smc power"),
              ElementsAre("power SleepDisabled = 0", "smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "power assertion 33001 released", "power assertion 33002 released"));
}

TEST(ChargeLimitTest, ClearOnTheOlderFamilyReleasesBothDischargeKeysInReverse) {
  Bench bench("older-pair");
  bench.boot();
  bench.call(bench.app->clearChargeLimit());
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
}

TEST(ChargeLimitTest, ClearEndsASavedHeatPause) {
  Bench bench;
  HelperState record = savedLimit(50);
  record.heatPauseActive = true;
  bench.saveState(record);
  bench.charge(49);
  bench.boot();
  ASSERT_TRUE(bench.onDisk().heatPauseActive);
  bench.call(bench.app->clearChargeLimit());
  EXPECT_FALSE(bench.state().heatPauseActive);
  EXPECT_FALSE(bench.onDisk().heatPauseActive);
}

TEST(ChargeLimitTest, ClearReportsAFailedResumeButStillUpdatesAndPersists) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.mac().smc.key("CHTE")->writeResult = 134;
  EXPECT_EQ(outcome(bench.call(bench.app->clearChargeLimit())),
            "failed 500 kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
  EXPECT_EQ(bench.key("CHIE"), "00");
}

TEST(ChargeLimitTest, ClearIgnoresAFailedDischargeKey) {
  Bench bench;
  bench.boot();
  bench.mac().smc.key("CHIE")->writeResult = 134;
  EXPECT_EQ(outcome(bench.call(bench.app->clearChargeLimit())), "ok");
}

TEST(ChargeLimitTest, ClearKeepsTheLimitForTheNextClientToArm) {
  Bench bench;
  bench.bootWithLimit(55);
  bench.call(bench.app->clearChargeLimit());
  bench.mark();
  const auto second = bench.world.connectApp();
  second->await(second->ping());
  bench.world.runUntilIdle();
  EXPECT_THAT(bench.logs(), ElementsAre("default client connected (count=2)",
                                        "default client connect — arming polling loop at "
                                        "limit=55"));
}

TEST(ChargeLimitTest, UnverifiedWriteIsReportedOnceAndRemembered) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.mac().smc.key("CHTE")->silentlyRefuses = true;
  bench.run(5);
  EXPECT_THAT(bench.logs(), ElementsAre("fault SMC write unverified — read-back disagreed; "
                                        "capability may be silently rejected by firmware",
                                        "default charge enforcement pause:ok"));
  EXPECT_THAT(bench.since("disk"),
              ElementsAre("disk state.json replaced: lastWriteVerified=false"));
  bench.mark();
  bench.run(60);
  EXPECT_THAT(bench.since("log disk reply"),
              ::testing::Each(::testing::HasSubstr("SMC write CHTE bytes")))
      << "a lasting failure is logged or persisted again";
  bench.mac().smc.key("CHTE")->silentlyRefuses = false;
  bench.mark();
  bench.run(5);
  EXPECT_THAT(bench.since("disk"), ElementsAre("disk state.json replaced: lastWriteVerified=true"));
  EXPECT_THAT(bench.logs(), IsEmpty());
}

TEST(ChargeLimitTest, OlderPairIsVerifiedOnlyWhenBothOfItsKeysAre) {
  for (const std::string refusing : {"CH0B", "CH0C"}) {
    Bench bench("older-pair");
    bench.bootWithLimit(50);
    bench.charge(70);
    bench.mac().smc.key(refusing)->silentlyRefuses = true;
    bench.run(5);
    EXPECT_EQ(bench.logs().back(), "default charge enforcement pause:ok") << refusing;
    EXPECT_FALSE(bench.onDisk().lastWriteVerified) << refusing;
    bench.mac().smc.key(refusing)->silentlyRefuses = false;
    bench.run(5);
    EXPECT_TRUE(bench.onDisk().lastWriteVerified) << refusing;
  }
}

TEST(ChargeLimitTest, VerifiedWriteOverAVerifiedRecordDoesNotTouchTheDisk) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.run(5);
  EXPECT_THAT(bench.since("smc disk"), ElementsAre("smc CHTE <- 01 00 00 00"));
}

}  // namespace
}  // namespace korvel::test
