// The pause before sleep, the end of a discharge before sleep, and the fresh look after wake.

#include "DischargeDecision.h"
#include "HelperImpl.h"
#include "Platform/KernelTypes.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

void sleepNow(Bench& bench) {
  bench.mac().power.requestSleep();
  bench.run(1);
}

void wakeNow(Bench& bench) {
  bench.mac().power.wake();
  bench.run(0);
}

TEST(SleepWakeTest, OnePauseIsWrittenBeforeTheAcknowledgementWhateverTheCharge) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(40);
  sleepNow(bench);
  EXPECT_THAT(bench.timed("smc power log"),
              ElementsAre("0.000 power sleep (requested) begins",
                          "0.000 power message 0xe0000280 to pid 501",
                          "0.000 log   SystemPower default \"kIOMessageSystemWillSleep — flushing "
                          "pre-sleep SMC pause-write\"",
                          "0.000 smc   CHTE <- 01 00 00 00",
                          "0.000 log   SMCWriter default \"SMC write CHTE bytes=[1, 0, 0, 0]\"",
                          "0.000 log   HelperImpl default \"pre-sleep CHTE pause-write succeeded\"",
                          "0.000 power message acknowledged by pid 501", "0.000 power asleep"));
}

TEST(SleepWakeTest, SuccessTextNamesTheNewerKeyAlsoOnTheOlderFamily) {
  Bench bench("older-pair");
  bench.bootWithLimit(80);
  sleepNow(bench);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0B <- 02", "smc CH0C <- 02"));
  EXPECT_THAT(bench.logs(), ElementsAre("default pre-sleep CHTE pause-write succeeded"));
}

TEST(SleepWakeTest, LimitOfHundredNeedsNoPause) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.mac().smc.key("CHTE")->silentlyRefuses = true;
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.call(bench.app->setChargeLimit(100));  // Not verified, so the loop keeps running.
  bench.mark();
  sleepNow(bench);
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_THAT(bench.logs(), IsEmpty());
  EXPECT_TRUE(bench.mac().power.isAsleep());
}

TEST(SleepWakeTest, NoLoopNoPause) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.call(bench.app->clearChargeLimit());
  bench.mark();
  sleepNow(bench);
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_THAT(bench.logs(), IsEmpty());
}

TEST(SleepWakeTest, OnBatteryOrWithAnUnknownAdapterThereIsNoPause) {
  for (const bool unknown : {false, true}) {
    Bench bench;
    bench.bootWithLimit(80);
    if (unknown) {
      bench.adapterUnknown();
    } else {
      bench.mac().adapter.disconnect();
    }
    sleepNow(bench);
    EXPECT_THAT(bench.since("smc"), IsEmpty());
    EXPECT_TRUE(bench.mac().power.isAsleep());
  }
}

TEST(SleepWakeTest, DischargeEndsBeforeSleepAndThePauseFollows) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().lid.close();
  bench.run(1);
  EXPECT_TRUE(bench.mac().power.isAsleep());
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHIE <- 00", "smc CHTE <- 01 00 00 00"));
  EXPECT_THAT(bench.logs(),
              ElementsAre("default pre-sleep: aborting active force-discharge before sleep",
                          "default force-discharge auto-stopped: reason=systemWillSleep",
                          "default pre-sleep CHTE pause-write succeeded"));
  EXPECT_EQ(bench.onDisk().lastDischargeAbortReason,
            std::string(bannerCopy(DischargeStopReason::systemWillSleep)));
}

TEST(SleepWakeTest, PauseAfterAnEndedDischargeDoesNotAskForTheAdapter) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().adapter.disconnect();
  sleepNow(bench);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHIE <- 00", "smc CHTE <- 01 00 00 00"));
}

TEST(SleepWakeTest, ArmedDischargeEndsBeforeARequestedSleepToo) {
  Bench bench;
  bench.bootArmedDischarge();
  bench.mac().power.setSleepDisabledExternally(false);
  bench.mac().adapter.disconnect();
  bench.mark();
  sleepNow(bench);
  ASSERT_TRUE(bench.mac().power.isAsleep());
  EXPECT_EQ(bench.logs().front(),
            "default pre-sleep: aborting active force-discharge before sleep");
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
  EXPECT_FALSE(bench.onDisk().sleepDisabledByKorvel);
}

TEST(SleepWakeTest, DischargeWithALimitOfHundredEndsWithoutAPause) {
  Bench bench;
  bench.bootDischarging();
  bench.call(bench.app->setChargeLimit(100));
  bench.mark();
  sleepNow(bench);
  EXPECT_THAT(bench.since("smc"), IsEmpty()) << "the tick had ended it; nothing is left to do";
}

TEST(SleepWakeTest, FailedPauseIsAnErrorLineAndSleepGoesOn) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.mac().smc.key("CHTE")->writeResult = 134;
  sleepNow(bench);
  EXPECT_EQ(bench.logs().back(),
            "error pre-sleep pause-write failed: kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_TRUE(bench.mac().power.isAsleep());
}

TEST(SleepWakeTest, PauseThatIsSlowerThanATenthOfASecondDoesNotHoldUpSleep) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.run(1);
  bench.mark();
  bench.world.faults().setLatency(SeamCall::smcCallStruct, 0.08);
  bench.mac().power.requestSleep();
  bench.run(0.0999);
  EXPECT_FALSE(bench.mac().power.isAsleep());
  bench.run(0.0002);
  EXPECT_TRUE(bench.mac().power.isAsleep()) << "the wait is a tenth of a second";
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  bench.run(60);
  wakeNow(bench);
  bench.run(1);
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00") << "the write completes by itself";
  EXPECT_TRUE(
      bench.world.logged("HelperImpl", LogLevel::Default, "pre-sleep CHTE pause-write succeeded"));
}

TEST(SleepWakeTest, WakeRestartsTheLoopAndEvaluatesAtOnce) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.charge(40);
  bench.run(2);
  sleepNow(bench);
  ASSERT_EQ(bench.key("CHTE"), "01 00 00 00");
  bench.run(3600);
  bench.mark();
  std::vector<double> ticks;
  bench.world.faults().observe([&](SeamCall call) {
    if (call == SeamCall::powerSourcesCopyInfo) ticks.push_back(bench.world.now());
  });
  const double wokenAt = bench.world.now();
  wakeNow(bench);
  EXPECT_EQ(bench.key("CHTE"), "00 00 00 00");
  bench.run(10);
  EXPECT_THAT(ticks, ElementsAre(wokenAt, wokenAt + 5, wokenAt + 10))
      << "one fresh timer, and no tick of the old one";
}

TEST(SleepWakeTest, WakeWithoutALoopStartsNone) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.call(bench.app->clearChargeLimit());
  sleepNow(bench);
  wakeNow(bench);
  const auto before = bench.world.callCounts();
  bench.run(30);
  EXPECT_EQ((bench.world.callCounts() - before).text(), "");
}

/// A core whose power messages a test sends itself: sleep ends every discharge, so no real wake
/// ever meets one.
class HandSentMessagesTest : public ::testing::Test {
 protected:
  HandSentMessagesTest() : platform(with(bench.world.startBareHelper(), rootDomain)) {
    bench.excuse(replyRule);  // The calls are the test's own.
    core = HelperImpl::create(platform);
    bench.charge(49);
    core->setChargeLimit(50, ignored());
    bench.run(2);
  }

  /// When readings are taken in the next nine seconds, counted from now.
  std::vector<double> ticksOfNineSeconds() {
    std::vector<double> ticks;
    const double start = bench.world.now();
    bench.world.faults().observe([&](SeamCall call) {
      if (call == SeamCall::powerSourcesCopyInfo) ticks.push_back(bench.world.now() - start);
    });
    bench.run(9);
    bench.world.faults().observe({});
    return ticks;
  }

  Bench bench;
  ScriptedRootDomain rootDomain;
  Platform platform;
  std::shared_ptr<HelperImpl> core;
};

TEST_F(HandSentMessagesTest, WakeRestartsALoopThatOnlyEnforces) {
  rootDomain.send(ioMessageSystemHasPoweredOn);
  EXPECT_THAT(ticksOfNineSeconds(), ElementsAre(0, 5));
}

TEST_F(HandSentMessagesTest, WakeDuringADischargeLeavesTheRunningLoopAsItIs) {
  bench.charge(70);
  core->forceDischarge(true, ignored());
  bench.world.runUntilIdle();
  rootDomain.send(ioMessageSystemHasPoweredOn);
  EXPECT_THAT(ticksOfNineSeconds(), ElementsAre(3, 8));
  EXPECT_TRUE(bench.onDisk().forceDischargeActive);
}

TEST_F(HandSentMessagesTest, OtherMessagesDoNothing) {
  bench.mark();
  rootDomain.send(ioMessageSystemWillPowerOn);
  rootDomain.send(ioMessageSystemWillNotSleep);
  rootDomain.send(ioMessageCanSystemSleep);
  EXPECT_THAT(ticksOfNineSeconds(), ElementsAre(3, 8));
  EXPECT_THAT(bench.since("smc log"), IsEmpty());
}

TEST(SleepWakeTest, LimitOutOfRangeInTheRecordNeitherPausesNorRestarts) {
  // A failed replacement leaves a loop running with 60 over a record that says 10.
  Bench bench;
  bench.saveState(savedLimit(10));
  bench.charge(59);
  bench.boot();
  bench.mac().disk.replaceFails = true;
  bench.call(bench.app->setChargeLimit(60));
  ASSERT_EQ(bench.state().chargeLimit, 10);
  bench.run(2);
  bench.mark();
  sleepNow(bench);
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_THAT(bench.logs(), IsEmpty());
  std::vector<double> ticks;
  bench.world.faults().observe([&](SeamCall call) {
    if (call == SeamCall::powerSourcesCopyInfo) ticks.push_back(bench.world.now());
  });
  const double wokenAt = bench.world.now();
  wakeNow(bench);
  bench.run(4);
  EXPECT_THAT(ticks, ElementsAre(wokenAt + 3)) << "the running loop keeps its own time";
}

TEST(SleepWakeTest, WakeIsNotHeldUpByABusyQueue) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.run(2);
  sleepNow(bench);
  bench.world.faults().setLatency(SeamCall::powerSourcesCopyInfo, 10);
  wakeNow(bench);
  bench.run(4);  // The tick is stuck in its reading.
  bench.mark();
  bench.mac().power.requestSleep();
  bench.run(0.2);
  EXPECT_THAT(bench.logs("SystemPower"),
              ElementsAre("default kIOMessageSystemWillSleep — flushing pre-sleep SMC pause-write"))
      << "the main thread is free to hear the next message";
  EXPECT_TRUE(bench.mac().power.isAsleep());
}

TEST(SleepWakeTest, CanSleepIsAllowedAtOnceWithoutAnyWork) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.mac().power.setIdleSleepMinutes(1);
  bench.run(59);
  bench.mark();
  bench.run(2);
  const Lines lines = bench.since("power");
  ASSERT_GE(lines.size(), 4U);
  EXPECT_THAT(lines, ::testing::Contains("power message 0xe0000270 to pid 501"));
  EXPECT_TRUE(bench.mac().power.isAsleep());
}

}  // namespace
}  // namespace korvel::test
