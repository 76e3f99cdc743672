// The shutdown restores the hardware in a fixed order and time; some state survives it.

#include <csignal>

#include "Base/Trap.h"
#include "HelperImpl.h"
#include "Platform/Dispatch.h"
#include "Platform/Process.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

using ShutdownTest = OnBench;

TEST_F(ShutdownTest, QuitSaysSoRestoresAndExitsWithZero) {
  bootArmedDischarge();
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  run(1);
  mark();
  quit();
  EXPECT_FALSE(world.helperRunning());
  EXPECT_EQ(world.exitStatus(), 0);
  EXPECT_THAT(logs(), ElementsAre("default quit() received pid=501",
                                  "default shutdownGracefully — restoring SMC before exit",
                                  "default clamshell keep-awake DISARMED"));
  EXPECT_THAT(since("smc power disk"),
              ElementsAre("power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false",
                          "smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false "
                          "lastWriteAt=2026-01-01T00:00:01Z"));
  EXPECT_THAT(since("reply"), IsEmpty()) << "quit has no reply";
  EXPECT_FALSE(app->connected()) << "the client's connection is invalidated";
}

TEST_F(ShutdownTest, DisarmsKeepAwakeBeforeTheKeysAndTheNativeLimit) {
  Bench bench("newer-keys-and-native");
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mark();
  bench.quit();
  EXPECT_THAT(bench.since("smc power"),
              ElementsAre("power SleepDisabled = 0", "smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "power native limit none (pid 501)"));
}

TEST_F(ShutdownTest, KeepsLimitBandVerificationAndBanner) {
  HelperState record = savedLimit(50);
  record.sailingBand = 9;
  saveState(record);
  bootAt(70);
  call(app->forceDischarge(true));
  tickAt(50);
  ASSERT_TRUE(state().lastDischargeAbortReason.has_value());
  quit();
  const HelperState left = onDisk();
  EXPECT_EQ(left.chargeLimit, 50);
  EXPECT_EQ(left.sailingBand, 9);
  EXPECT_TRUE(left.lastWriteVerified);
  EXPECT_TRUE(left.lastDischargeAbortReason.has_value());
  EXPECT_EQ(left.helperVersion, "2.0.0");
  EXPECT_FALSE(left.forceDischargeActive);
}

TEST_F(ShutdownTest, EndsASavedHeatPause) {
  bootHeatPaused();
  quit();
  ASSERT_EQ(world.exitStatus(), 0);
  EXPECT_FALSE(onDisk().heatPauseActive);
}

TEST_F(ShutdownTest, BusyQueueMeansExitAfterHalfASecondWithoutRestoring) {
  bootWithLimit(50);
  tickAt(70);
  ASSERT_EQ(key("CHTE"), "01 00 00 00");
  world.faults().setLatency(SeamCall::powerSourcesCopyInfo, 10);
  run(5);  // The tick at 10 s is now stuck in its reading.
  mark();
  world.sendSignal(SIGTERM);
  run(0.499);
  EXPECT_TRUE(world.helperRunning());
  run(0.002);
  EXPECT_FALSE(world.helperRunning());
  EXPECT_EQ(world.exitStatus(), 0);
  EXPECT_THAT(since("smc disk"), IsEmpty());
  EXPECT_EQ(key("CHTE"), "01 00 00 00");
}

TEST_F(ShutdownTest, RestorationThatTakesLongIsCutOffWhereItStands) {
  Bench bench("both-families");
  bench.bootWithLimit(50);
  bench.tickAt(70);
  bench.world.faults().setLatency(SeamCall::smcCallStruct, 0.15);
  bench.mark();
  bench.world.sendSignal(SIGTERM);
  bench.run(2);
  EXPECT_EQ(bench.world.exitStatus(), 0);
  const Lines writes = bench.since("smc");
  EXPECT_FALSE(writes.empty());
  EXPECT_LT(writes.size(), 6U);
  EXPECT_THAT(bench.since("disk"), IsEmpty());
}

TEST_F(ShutdownTest, FailuresAreSilent) {
  Bench bench("newer-keys-and-native");
  bench.bootWithLimit(50);
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.mac().powerUI.setError = "no";
  bench.mark();
  bench.quit();
  EXPECT_THAT(bench.logs(), ElementsAre("default quit() received pid=501",
                                        "default shutdownGracefully — restoring SMC before exit"));
  EXPECT_THAT(bench.since("smc"),
              ElementsAre("smc CHTE <- 00 00 00 00 refused (result 134)", "smc CHIE <- 00"));
}

TEST_F(ShutdownTest, NativeLimitGoesBackToNone) {
  Bench bench("native-only");
  bench.bootWithLimit(80);
  bench.tickAt(90);
  ASSERT_EQ(bench.mac().powerUI.currentLimit(), 80);
  bench.quit();
  EXPECT_EQ(bench.mac().powerUI.currentLimit(), 0);
}

TEST_F(ShutdownTest, NextBootFindsNothingToRecover) {
  bootArmedDischarge();
  quit();
  boot();
  EXPECT_EQ(world.logCount("crash-recovery: clearing stuck discharge keys from previous run"), 0U);
  EXPECT_EQ(world.logCount("crash-recovery: clearing SleepDisabled set by previous run"), 0U);
}

TEST_F(ShutdownTest, QuitAndASignalAtOnceRestoreBeforeEitherEndsTheProcess) {
  for (const bool signalFirst : {false, true}) {
    Bench bench;
    bench.bootWithLimit(50);
    bench.tickAt(70);
    ASSERT_EQ(bench.key("CHTE"), "01 00 00 00");
    bench.world.faults().setLatency(SeamCall::smcCallStruct, 0.05);
    bench.mark();
    if (signalFirst) bench.world.sendSignal(SIGTERM);
    bench.app->quit();
    if (!signalFirst) bench.world.sendSignal(SIGTERM);
    bench.run(0.09);
    EXPECT_TRUE(bench.world.helperRunning()) << "both wait for the restoration";
    EXPECT_EQ(bench.world.logCount("quit() received pid=501"), 1U);
    EXPECT_EQ(bench.world.logCount("SIGTERM — shutting down gracefully"), 1U);
    EXPECT_EQ(bench.world.logCount("shutdownGracefully — restoring SMC before exit"), 2U);
    bench.run(0.41);
    EXPECT_EQ(bench.world.exitStatus(), 0);
    EXPECT_EQ(bench.key("CHTE"), "00 00 00 00");
    EXPECT_THAT(bench.since("disk"),
                ::testing::Contains("disk state.json replaced: lastWriteAt=2026-01-01T00:00:05Z"));
  }
}

/// A helper under the schedule of one seed, which is not started again, and an application.
struct SeededWorld {
  explicit SeededWorld(std::uint64_t seed)
      : world({.seed = seed, .scheduling = virtualmac::Scheduling::Seeded}) {
    world.launchd().job.startOnDemand = false;
    world.startHelper();
    app = world.connectApp();
  }

  World world;
  virtualmac::InvariantSet rules{world};
  std::unique_ptr<AppClient> app;
};

TEST_F(ShutdownTest, QuitAndASignalAtOnceEndTheProcessOnceUnderEverySchedule) {
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    SeededWorld one(seed);
    one.app->await(one.app->setChargeLimit(50));
    one.world.machine().smc.setValue("CHTE", {1, 0, 0, 0});
    one.world.runFor(1);
    one.world.sendSignal(SIGTERM);
    one.app->quit();
    one.world.runFor(1);
    EXPECT_EQ(one.world.exitStatus(), 0) << "seed " << seed;
    EXPECT_EQ(one.world.machine().smc.value("CHTE"), (std::vector<std::uint8_t>{0, 0, 0, 0}))
        << "seed " << seed;
    one.rules.finish();
    EXPECT_THAT(one.rules.violations(), IsEmpty()) << "seed " << seed;
  }
}

TEST_F(ShutdownTest, CommandBehindTheLastWorkMayStillBeginBeforeTheExit) {
  // A window that the order of steps leaves open: the exit follows the end of the restoration at
  // once, but another thread may be faster. Whether it is, the schedule decides.
  int begun = 0;
  for (std::uint64_t seed = 1; seed <= 200 && begun < 3; ++seed) {
    SeededWorld one(seed);
    one.app->await(one.app->ping());
    one.world.runFor(1);  // Lets the helper finish its start.
    one.world.sendSignal(SIGTERM);
    one.app->setClamshellKeepAwake(true);
    one.world.runFor(1);
    EXPECT_EQ(one.world.exitStatus(), 0);
    if (one.world.machine().power.sleepDisabled()) {
      ++begun;
      one.world.startHelper();
      one.world.runFor(1);
      EXPECT_FALSE(one.world.machine().power.sleepDisabled()) << "the next start finds the flag";
    }
    EXPECT_THAT(one.rules.violations(), IsEmpty()) << "seed " << seed;
  }
  EXPECT_EQ(begun, 3);
}

/// A process whose exit takes a while, during which its other threads run on.
class SlowToExit final : public Process {
 public:
  SlowToExit(Platform& platform, double exitSeconds)
      : real(platform.process), dispatch(platform.dispatch), seconds(exitSeconds) {}
  std::int32_t getpid() override { return real.getpid(); }
  [[noreturn]] void exit(int status) override {
    const auto never = dispatch.makeGroup();
    never->enter();
    static_cast<void>(never->wait(seconds));
    real.exit(status);
    trap("the process went on after its exit");  // Not every compiler knows that exit() ends it.
  }
  std::optional<std::string> bundleExecutablePath() override { return real.bundleExecutablePath(); }
  PropertyValue bundleInfo(std::string_view key) override { return real.bundleInfo(key); }

 private:
  Process& real;
  Dispatch& dispatch;
  double seconds;
};

/// Runs a core that is slow to exit; the test calls it directly.
class SlowExitBench : public Bench {
 public:
  SlowExitBench() { excuse(replyRule); }

  /// Shuts down two seconds from now, while a loop runs, and gives the journal since.
  Lines shutDown(std::string_view kinds) {
    run(2);
    mark();
    const auto before = world.callCounts();
    world.onThread("quits", [this] { core->shutdownGracefully(); });
    run(19.999);
    EXPECT_FALSE(world.exitStatus().has_value()) << "no slow exit";
    run(0.001);
    EXPECT_EQ(world.exitStatus(), 0);
    EXPECT_EQ((world.callCounts() - before)[SeamCall::powerSourcesCopyInfo], 0U)
        << "a tick asked for the charge";
    return since(kinds);
  }

 private:
  Platform& platform = world.startBareHelper();
  SlowToExit process{platform, 20};
  Platform slow = with(platform, process);

 public:
  const std::shared_ptr<HelperImpl> core = HelperImpl::create(slow);
};

TEST_F(ShutdownTest, NoTickOfThePollingLoopComesBetweenTheRestorationAndTheExit) {
  SlowExitBench bench;
  bench.charge(70);
  bench.core->setChargeLimit(50, ignored());
  bench.world.runUntilIdle();
  ASSERT_EQ(bench.key("CHTE"), "01 00 00 00");
  EXPECT_THAT(bench.shutDown("smc disk"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "disk state.json replaced: lastWriteAt=2026-01-01T00:00:02Z"));
}

TEST_F(ShutdownTest, TopOffLoopStandsDownBetweenTheRestorationAndTheExit) {
  // Its battery is full, so that a tick that does not stand down restores the limit.
  SlowExitBench bench;
  bench.charge(70);
  bench.core->setChargeLimit(50, ignored());
  bench.core->releaseLimitUntilFullThenRestore(ignored());
  bench.world.runUntilIdle();
  bench.charge(100);
  EXPECT_THAT(bench.shutDown("smc disk"),
              ElementsAre("smc CHTE <- 00 00 00 00", "smc CHIE <- 00",
                          "disk state.json replaced: lastWriteAt=2026-01-01T00:00:02Z "
                          "topUpActive=false"));
  EXPECT_THAT(bench.logs(), ElementsAre("default shutdownGracefully — restoring SMC before exit",
                                        "default top-off restore loop superseded — bailing"));
}

TEST_F(ShutdownTest, SigabrtRestoresLikeTheOthers) {
  bootDischarging();
  world.sendSignal(SIGABRT);
  world.runUntilIdle();
  EXPECT_EQ(world.exitStatus(), 0);
  EXPECT_THAT(logs("Boot"), ElementsAre("fault SIGABRT — running shutdownGracefully before exit"));
  EXPECT_EQ(key("CHIE"), "00");
}

TEST_F(ShutdownTest, SmcThatIsGoneStillReleasesAndPersists) {
  bootDischarging();
  mac().smc.servicePresent = false;
  mac().smc.invalidateConnections();
  mark();
  quit();
  EXPECT_EQ(world.exitStatus(), 0);
  EXPECT_THAT(since("smc"), IsEmpty());
  EXPECT_TRUE(mac().power.assertions().empty());
  EXPECT_FALSE(onDisk().forceDischargeActive);
}

TEST_F(ShutdownTest, FailedPersistDoesNotHoldUpTheExit) {
  bootWithLimit(50);
  mac().disk.full = true;
  quit();
  EXPECT_EQ(world.exitStatus(), 0);
}

}  // namespace
}  // namespace korvel::test
