// The pause before sleep, the end of a discharge before sleep, and the fresh look after wake.

#include "DischargeDecision.h"
#include "Tests/behaviour/Bench.h"

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
  const auto before = bench.world.callCounts();
  bench.run(5);
  ASSERT_EQ((bench.world.callCounts() - before)[SeamCall::powerSourcesCopyInfo], 1U) << "it runs";
  bench.mark();
  sleepNow(bench);
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_THAT(bench.logs(), IsEmpty());
  EXPECT_TRUE(bench.mac().power.isAsleep());
}

TEST(SleepWakeTest, PauseBeforeSleepIsForLimitsFromTwentyToNinetyNine) {
  for (const std::uint8_t limit : {std::uint8_t{20}, std::uint8_t{99}}) {
    Bench bench;
    bench.bootWithLimit(limit);
    sleepNow(bench);
    EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 01 00 00 00")) << int{limit};
  }
}

TEST(SleepWakeTest, BatteryLevelIsNotAskedForBeforeSleep) {
  Bench bench;
  bench.bootWithLimit(80);
  const auto before = bench.world.callCounts();
  sleepNow(bench);
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00");
  EXPECT_EQ((bench.world.callCounts() - before)[SeamCall::powerSourcesCopyInfo], 0U);
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

TEST(SleepWakeTest, PauseAfterAnEndedDischargeFollowsWhateverTheAdapterReports) {
  for (const bool unknown : {false, true}) {
    Bench bench;
    bench.bootDischarging();
    if (unknown) {
      bench.adapterUnknown();
      bench.mac().lid.close();  // The adapter is there, so an assertion holds off other sleeps.
      bench.run(1);
    } else {
      bench.mac().adapter.disconnect();
      sleepNow(bench);
    }
    EXPECT_TRUE(bench.mac().power.isAsleep());
    EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHIE <- 00", "smc CHTE <- 01 00 00 00"));
  }
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
  bench.chargeUnreadable();  // So that the new limit's first tick does not end the discharge.
  bench.call(bench.app->setChargeLimit(100));
  ASSERT_TRUE(bench.state().forceDischargeActive);
  bench.mark();
  bench.mac().lid.close();
  bench.run(1);
  EXPECT_TRUE(bench.mac().power.isAsleep());
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHIE <- 00"));
  EXPECT_THAT(bench.logs(),
              ElementsAre("default pre-sleep: aborting active force-discharge before sleep",
                          "default force-discharge auto-stopped: reason=systemWillSleep"));
}

TEST(SleepWakeTest, DischargeThatNoLoopWatchesEndsBeforeSleepToo) {
  // A record with a limit that no loop takes: the discharge starts, its loop stops at once.
  Bench bench;
  bench.saveState(savedLimit(10));
  bench.charge(60);
  bench.boot();
  ASSERT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
  ASSERT_TRUE(bench.world.logged("HelperImpl", LogLevel::Fault,
                                 "pollOnce: target 10 out of range — stopping loop"));
  bench.mark();
  bench.mac().lid.close();
  bench.run(1);
  EXPECT_TRUE(bench.mac().power.isAsleep());
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHIE <- 00")) << "and no pause";
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
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

TEST(SleepWakeTest, PauseThatIsSlowDelaysTheAcknowledgementByAsMuch) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.run(1);
  bench.mark();
  bench.world.faults().setLatency(SeamCall::smcCallStruct, 0.02);
  bench.mac().power.requestSleep();
  bench.run(1);
  EXPECT_THAT(
      bench.timed("smc power"),
      ElementsAre("1.000 power sleep (requested) begins",
                  "1.000 power message 0xe0000280 to pid 501", "1.040 smc   CHTE <- 01 00 00 00",
                  "1.060 power message acknowledged by pid 501", "1.060 power asleep"));
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

/// Another program that hears of sleep, and acknowledges when the test lets it.
class OtherProgram {
 public:
  explicit OtherProgram(Bench& host) : bench(host) {
    bench.mac().power.addRegistration(pid, notifier, [this](const virtualmac::PowerMessage& told) {
      if (told.notificationID != 0) awaited = told.notificationID;
    });
  }
  ~OtherProgram() { bench.mac().power.removeRegistration(pid, notifier); }
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;

  void acknowledge() { bench.mac().power.acknowledge(pid, notifier, awaited); }

 private:
  static constexpr std::int32_t pid = 901;
  static constexpr ObjectRef notifier = 0x901;

  Bench& bench;
  std::intptr_t awaited = 0;
};

TEST(SleepWakeTest, DischargeRequestBehindThePreSleepWorkStartsAfterTheAcknowledgementAndSleeps) {
  // A window that the order of steps leaves open: the work before sleep stops the discharge that
  // runs, not the one that is asked for behind it.
  Bench bench;
  OtherProgram other(bench);
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.mac().smc.setValue("CHTE", {0, 0, 0, 0});
  bench.run(1);
  bench.mark();
  bench.world.faults().setLatency(SeamCall::smcCallStruct, 0.03);
  bench.mac().power.requestSleep();
  bench.run(0.05);
  const auto asked = bench.app->forceDischarge(true);
  bench.run(0.95);
  EXPECT_EQ(outcome(*asked), "ok");
  EXPECT_THAT(bench.since("smc power reply"),
              ElementsAre("power sleep (requested) begins", "power message 0xe0000280 to pid 901",
                          "power message 0xe0000280 to pid 501", "smc CHTE <- 01 00 00 00",
                          "power message acknowledged by pid 501", "smc CHIE <- 08",
                          ::testing::StartsWith("power assertion 33001 created"),
                          ::testing::StartsWith("power assertion 33002 created"),
                          "reply forceDischarge ok"));
  EXPECT_FALSE(bench.mac().power.isAsleep()) << "the other program is not ready yet";
  other.acknowledge();
  bench.run(1);
  EXPECT_TRUE(bench.mac().power.isAsleep()) << "an assertion does not stop what has begun";
  bench.run(3600);
  EXPECT_EQ(bench.key("CHIE"), "08") << "it lasts through the sleep";
  EXPECT_TRUE(bench.onDisk().forceDischargeActive);
  bench.charge(50);
  bench.mark();
  wakeNow(bench);
  bench.run(5);
  EXPECT_THAT(bench.logs(),
              ::testing::Contains("default force-discharge auto-stopped: reason=targetReached"))
      << "its rules are asked again after wake";
  EXPECT_EQ(bench.key("CHIE"), "00");
}

}  // namespace
}  // namespace korvel::test
