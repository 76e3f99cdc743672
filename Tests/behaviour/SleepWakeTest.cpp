// The helper pauses and ends a discharge before sleep, and looks afresh after wake.

#include "DischargeDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

void wakeNow(Bench& bench) {
  bench.mac().power.wake();
  bench.run(0);
}

using SleepWakeTest = OnBench;

TEST_F(SleepWakeTest, OnePauseIsWrittenBeforeTheAcknowledgementWhateverTheCharge) {
  bootWithLimit(80, 40);
  sleepNow();
  EXPECT_THAT(timed("smc power log"),
              ElementsAre("0.000 power sleep (requested) begins",
                          "0.000 power message 0xe0000280 to pid 501",
                          "0.000 log   SystemPower default \"kIOMessageSystemWillSleep — flushing "
                          "pre-sleep SMC pause-write\"",
                          "0.000 smc   CHTE <- 01 00 00 00",
                          "0.000 log   SMCWriter default \"SMC write CHTE bytes=[1, 0, 0, 0]\"",
                          "0.000 log   HelperImpl default \"pre-sleep CHTE pause-write succeeded\"",
                          "0.000 power message acknowledged by pid 501", "0.000 power asleep"));
}

TEST_F(SleepWakeTest, SuccessTextNamesTheNewerKeyAlsoOnTheOlderFamily) {
  Bench bench("older-pair");
  bench.bootWithLimit(80);
  bench.sleepNow();
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0B <- 02", "smc CH0C <- 02"));
  EXPECT_THAT(bench.logs(), ElementsAre("default pre-sleep CHTE pause-write succeeded"));
}

TEST_F(SleepWakeTest, LimitOfHundredNeedsNoPause) {
  bootWithLimit(80);
  mac().smc.key("CHTE")->silentlyRefuses = true;
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  call(app->setChargeLimit(100));  // Not verified, so the loop keeps running.
  ASSERT_EQ(callsDuring(5)[SeamCall::powerSourcesCopyInfo], 1U) << "it runs";
  mark();
  sleepNow();
  EXPECT_THAT(since("smc"), IsEmpty());
  EXPECT_THAT(logs(), IsEmpty());
  EXPECT_TRUE(mac().power.isAsleep());
}

TEST_F(SleepWakeTest, PauseBeforeSleepIsForLimitsFromTwentyToNinetyNine) {
  for (const std::uint8_t limit : {std::uint8_t{20}, std::uint8_t{99}}) {
    Bench bench;
    bench.bootWithLimit(limit);
    bench.sleepNow();
    EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHTE <- 01 00 00 00")) << int{limit};
  }
}

TEST_F(SleepWakeTest, BatteryLevelIsNotAskedForBeforeSleep) {
  bootWithLimit(80);
  const auto before = world.callCounts();
  sleepNow();
  EXPECT_EQ(key("CHTE"), "01 00 00 00");
  EXPECT_EQ((world.callCounts() - before)[SeamCall::powerSourcesCopyInfo], 0U);
}

TEST_F(SleepWakeTest, NoLoopNoPause) {
  bootWithLimit(80);
  call(app->clearChargeLimit());
  mark();
  sleepNow();
  EXPECT_THAT(since("smc"), IsEmpty());
  EXPECT_THAT(logs(), IsEmpty());
}

TEST_F(SleepWakeTest, OnBatteryOrWithAnUnknownAdapterThereIsNoPause) {
  for (const bool unknown : {false, true}) {
    Bench bench;
    bench.bootWithLimit(80);
    if (unknown) {
      bench.adapterUnknown();
    } else {
      bench.mac().adapter.disconnect();
    }
    bench.sleepNow();
    EXPECT_THAT(bench.since("smc"), IsEmpty());
    EXPECT_TRUE(bench.mac().power.isAsleep());
  }
}

TEST_F(SleepWakeTest, DischargeEndsBeforeSleepAndThePauseFollows) {
  bootDischarging();
  mac().lid.close();
  run(1);
  EXPECT_TRUE(mac().power.isAsleep());
  EXPECT_THAT(since("smc"), ElementsAre("smc CHIE <- 00", "smc CHTE <- 01 00 00 00"));
  EXPECT_THAT(logs(), ElementsAre("default pre-sleep: aborting active force-discharge before sleep",
                                  "default force-discharge auto-stopped: reason=systemWillSleep",
                                  "default pre-sleep CHTE pause-write succeeded"));
  EXPECT_EQ(onDisk().lastDischargeAbortReason, bannerCopy(DischargeStopReason::systemWillSleep));
}

TEST_F(SleepWakeTest, PauseAfterAnEndedDischargeFollowsWhateverTheAdapterReports) {
  for (const bool unknown : {false, true}) {
    Bench bench;
    bench.bootDischarging();
    if (unknown) {
      bench.adapterUnknown();
      bench.mac().lid.close();  // The adapter's assertion does not delay lid sleep.
      bench.run(1);
    } else {
      bench.mac().adapter.disconnect();
      bench.sleepNow();
    }
    EXPECT_TRUE(bench.mac().power.isAsleep());
    EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHIE <- 00", "smc CHTE <- 01 00 00 00"));
  }
}

TEST_F(SleepWakeTest, ArmedDischargeEndsBeforeARequestedSleepToo) {
  bootArmedDischarge();
  mac().power.setSleepDisabledExternally(false);
  mac().adapter.disconnect();
  mark();
  sleepNow();
  ASSERT_TRUE(mac().power.isAsleep());
  EXPECT_EQ(logs().front(), "default pre-sleep: aborting active force-discharge before sleep");
  EXPECT_FALSE(onDisk().forceDischargeActive);
  EXPECT_FALSE(onDisk().sleepDisabledByKorvel);
}

TEST_F(SleepWakeTest, DischargeWithALimitOfHundredEndsWithoutAPause) {
  bootDischarging();
  chargeUnreadable();  // So that the new limit's first tick does not end the discharge.
  call(app->setChargeLimit(100));
  ASSERT_TRUE(state().forceDischargeActive);
  mark();
  mac().lid.close();
  run(1);
  EXPECT_TRUE(mac().power.isAsleep());
  EXPECT_THAT(since("smc"), ElementsAre("smc CHIE <- 00"));
  EXPECT_THAT(logs(), ElementsAre("default pre-sleep: aborting active force-discharge before sleep",
                                  "default force-discharge auto-stopped: reason=systemWillSleep"));
}

TEST_F(SleepWakeTest, DischargeThatNoLoopWatchesEndsBeforeSleepToo) {
  // A record with a limit that no loop takes: the discharge starts, its loop stops at once.
  saveState(savedLimit(10));
  bootAt(60);
  ASSERT_EQ(ask(app->forceDischarge(true)), "ok");
  ASSERT_TRUE(world.logged("HelperImpl", LogLevel::Fault,
                           "pollOnce: target 10 out of range — stopping loop"));
  mark();
  mac().lid.close();
  run(1);
  EXPECT_TRUE(mac().power.isAsleep());
  EXPECT_THAT(since("smc"), ElementsAre("smc CHIE <- 00")) << "and no pause";
  EXPECT_FALSE(onDisk().forceDischargeActive);
}

TEST_F(SleepWakeTest, FailedPauseIsAnErrorLineAndSleepGoesOn) {
  bootWithLimit(80);
  mac().smc.key("CHTE")->writeResult = 134;
  sleepNow();
  EXPECT_EQ(logs().back(),
            "error pre-sleep pause-write failed: kSMCWriteKey failed (kIOReturn=0, smcResult=134)");
  EXPECT_TRUE(mac().power.isAsleep());
}

TEST_F(SleepWakeTest, PauseThatIsSlowDelaysTheAcknowledgementByAsMuch) {
  bootWithLimit(80);
  run(1);
  mark();
  world.faults().setLatency(SeamCall::smcCallStruct, 0.02);
  sleepNow();
  EXPECT_THAT(
      timed("smc power"),
      ElementsAre("1.000 power sleep (requested) begins",
                  "1.000 power message 0xe0000280 to pid 501", "1.040 smc   CHTE <- 01 00 00 00",
                  "1.060 power message acknowledged by pid 501", "1.060 power asleep"));
}

TEST_F(SleepWakeTest, PauseThatIsSlowerThanATenthOfASecondDoesNotHoldUpSleep) {
  bootWithLimit(80);
  run(1);
  mark();
  world.faults().setLatency(SeamCall::smcCallStruct, 0.08);
  mac().power.requestSleep();
  run(0.0999);
  EXPECT_FALSE(mac().power.isAsleep());
  run(0.0002);
  EXPECT_TRUE(mac().power.isAsleep()) << "the wait is a tenth of a second";
  EXPECT_THAT(since("smc"), IsEmpty());
  run(60);
  wakeNow(*this);
  run(1);
  EXPECT_EQ(key("CHTE"), "01 00 00 00") << "the write completes by itself";
  EXPECT_TRUE(
      world.logged("HelperImpl", LogLevel::Default, "pre-sleep CHTE pause-write succeeded"));
}

TEST_F(SleepWakeTest, WakeRestartsTheLoopAndEvaluatesAtOnce) {
  bootWithLimit(80, 40);
  run(2);
  sleepNow();
  ASSERT_EQ(key("CHTE"), "01 00 00 00");
  run(3600);
  mark();
  const auto& ticks = noteTicks();
  const double wokenAt = world.now();
  wakeNow(*this);
  EXPECT_EQ(key("CHTE"), "00 00 00 00");
  run(10);
  EXPECT_THAT(ticks, ElementsAre(wokenAt, wokenAt + 5, wokenAt + 10))
      << "one fresh timer, and no tick of the old one";
}

TEST_F(SleepWakeTest, WakeWithoutALoopStartsNone) {
  bootWithLimit(80);
  call(app->clearChargeLimit());
  sleepNow();
  wakeNow(*this);
  EXPECT_EQ(callsDuring(30).text(), "");
}

TEST_F(SleepWakeTest, LimitOutOfRangeInTheRecordNeitherPausesNorRestarts) {
  // A failed replacement leaves a loop running with 60 over a record that says 10.
  saveState(savedLimit(10));
  bootAt(59);
  mac().disk.replaceFails = true;
  call(app->setChargeLimit(60));
  ASSERT_EQ(state().chargeLimit, 10);
  run(2);
  mark();
  sleepNow();
  EXPECT_THAT(since("smc"), IsEmpty());
  EXPECT_THAT(logs(), IsEmpty());
  const auto& ticks = noteTicks();
  const double wokenAt = world.now();
  wakeNow(*this);
  run(4);
  EXPECT_THAT(ticks, ElementsAre(wokenAt + 3)) << "the running loop keeps its own time";
}

TEST_F(SleepWakeTest, WakeIsNotHeldUpByABusyQueue) {
  bootWithLimit(50);
  run(2);
  sleepNow();
  world.faults().setLatency(SeamCall::powerSourcesCopyInfo, 10);
  wakeNow(*this);
  run(4);  // The tick is stuck in its reading.
  mark();
  mac().power.requestSleep();
  run(0.2);
  EXPECT_THAT(logs("SystemPower"),
              ElementsAre("default kIOMessageSystemWillSleep — flushing pre-sleep SMC pause-write"))
      << "the main thread is free to hear the next message";
  EXPECT_TRUE(mac().power.isAsleep());
}

TEST_F(SleepWakeTest, CanSleepIsAllowedAtOnceWithoutAnyWork) {
  bootWithLimit(80);
  mac().power.setIdleSleepMinutes(1);
  run(59);
  mark();
  run(2);
  const Lines lines = since("power");
  ASSERT_GE(lines.size(), 4U);
  EXPECT_THAT(lines, ::testing::Contains("power message 0xe0000270 to pid 501"));
  EXPECT_TRUE(mac().power.isAsleep());
}

/// Another program registered for sleep messages, which acknowledges when the test says so.
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

TEST_F(SleepWakeTest, DischargeRequestBehindThePreSleepWorkStartsAfterTheAcknowledgementAndSleeps) {
  // A window that the order of steps leaves open: the work before sleep stops the discharge that
  // runs, not the one that is asked for behind it.
  OtherProgram other(*this);
  bootWithLimit(50, 70);
  mac().smc.setValue("CHTE", {0, 0, 0, 0});
  run(1);
  mark();
  world.faults().setLatency(SeamCall::smcCallStruct, 0.03);
  mac().power.requestSleep();
  run(0.05);
  const auto asked = app->forceDischarge(true);
  run(0.95);
  EXPECT_EQ(outcome(*asked), "ok");
  EXPECT_THAT(since("smc power reply"),
              ElementsAre("power sleep (requested) begins", "power message 0xe0000280 to pid 901",
                          "power message 0xe0000280 to pid 501", "smc CHTE <- 01 00 00 00",
                          "power message acknowledged by pid 501", "smc CHIE <- 08",
                          ::testing::StartsWith("power assertion 33001 created"),
                          ::testing::StartsWith("power assertion 33002 created"),
                          "reply forceDischarge ok"));
  EXPECT_FALSE(mac().power.isAsleep()) << "the other program is not ready yet";
  other.acknowledge();
  run(1);
  EXPECT_TRUE(mac().power.isAsleep()) << "an assertion does not stop what has begun";
  run(3600);
  EXPECT_EQ(key("CHIE"), "08") << "it lasts through the sleep";
  EXPECT_TRUE(onDisk().forceDischargeActive);
  charge(50);
  mark();
  wakeNow(*this);
  run(5);
  EXPECT_THAT(logs(),
              ::testing::Contains("default force-discharge auto-stopped: reason=targetReached"))
      << "its rules are asked again after wake";
  EXPECT_EQ(key("CHIE"), "00");
}

}  // namespace
}  // namespace korvel::test
