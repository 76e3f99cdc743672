// The helper counts clients, and suspends its work a grace period after the last one left.

#include "HelperImpl.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* suspending =
    "default all clients gone — suspending enforcement, resuming normal charging (saved limit=50 "
    "retained)";

void leave(Bench& bench) {
  bench.app->disconnect();
  bench.world.runUntilIdle();
}

void leaveFor(Bench& bench, double seconds) {
  leave(bench);
  bench.run(seconds);
}

using ClientPresenceTest = OnBench;

TEST_F(ClientPresenceTest, QuickReturnKeepsTheLoopRunningWithoutAGap) {
  bootWithLimit(50, 70);
  const auto& ticks = noteTicks();
  leaveFor(*this, 29.5);
  const auto again = connectAnother();
  run(31);
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)",
                                  "default charge enforcement pause:ok",
                                  "default client connected (count=1)"));
  EXPECT_EQ(ticks.size(), 12U);
  EXPECT_EQ(key("CHTE"), "01 00 00 00");
}

TEST_F(ClientPresenceTest, OneOfTwoLeavingStartsNoTimer) {
  bootWithLimit(50);
  const auto second = connectAnother();
  leaveFor(*this, 120);
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=2)",
                                  "default client disconnected (count=1)"));
}

TEST_F(ClientPresenceTest, ConnectWhileTheLoopRunsChangesNothingButCountAndLog) {
  bootWithLimit(50);
  run(2);
  const auto before = world.callCounts();
  const auto second = connectAnother();
  EXPECT_EQ((world.callCounts() - before)[SeamCall::powerSourcesCopyInfo], 0U)
      << "the loop was restarted";
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=2)"));
  EXPECT_THAT(since("smc disk"), IsEmpty());
}

TEST_F(ClientPresenceTest, SavedLimitIsArmedByTheFirstConnect) {
  saveState(savedLimit(70));
  bootAt(75);
  EXPECT_TRUE(world.logged("HelperImpl", LogLevel::Default,
                           "client connect — arming polling loop at limit=70"));
  EXPECT_EQ(key("CHTE"), "01 00 00 00");
}

TEST_F(ClientPresenceTest, SavedLimitOfHundredIsArmedHandedBackAndStopped) {
  saveState(savedLimit(100));
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  boot();
  EXPECT_EQ(key("CHTE"), "00 00 00 00");
  EXPECT_TRUE(world.logged("HelperImpl", LogLevel::Default,
                           "100% target — returned charging to macOS and stopped "
                           "enforcement"));
}

TEST_F(ClientPresenceTest, LimitsOutsideTwentyToHundredArmNothing) {
  for (const int limit : {19, 101, 0, -3}) {
    Bench bench;
    bench.saveState(savedLimit(limit));
    bench.charge(100);
    bench.startHelper();
    bench.mark();
    const auto client = bench.connectAnother();
    const auto before = bench.world.callCounts();
    bench.run(30);
    EXPECT_THAT(bench.logs(), ElementsAre("default client connected (count=1)")) << limit;
    EXPECT_EQ((bench.world.callCounts() - before).text(), "") << limit;
    EXPECT_EQ(bench.mac().smc.totalWrites(), 0U) << limit;
  }
}

TEST_F(ClientPresenceTest, FreshInstallArmsNothingOnConnectAlsoAfterARestart) {
  bootAt(95);
  run(30);
  EXPECT_EQ(mac().smc.totalWrites(), 0U);
  world.killHelper();
  boot();
  run(30);
  EXPECT_EQ(mac().smc.totalWrites(), 0U)
      << "the distant past must come back from the file as itself";
  EXPECT_FALSE(world.logged("HelperImpl", LogLevel::Default,
                            "client connect — arming polling loop at limit=80"));
}

TEST_F(ClientPresenceTest, SuspensionResumesChargingAndKeepsTheSavedLimit) {
  bootWithLimit(50);
  tickAt(70);
  ASSERT_EQ(key("CHTE"), "01 00 00 00");
  mark();
  leaveFor(*this, 29.999);
  EXPECT_EQ(key("CHTE"), "01 00 00 00");
  run(0.001);
  EXPECT_THAT(since("smc"), ElementsAre("smc CHIE <- 00", "smc CHTE <- 00 00 00 00"));
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)", suspending));
  const HelperState record = onDisk();
  EXPECT_EQ(record.chargeLimit, 50);
  EXPECT_FALSE(record.forceDischargeActive);
  EXPECT_FALSE(record.heatPauseActive);
  EXPECT_FALSE(record.topUpActive);
  EXPECT_EQ(callsDuring(60).text(), "") << "something still ticks";
}

TEST_F(ClientPresenceTest, SuspensionClearsItsFlagsOnDiskAndSupersedesATopOff) {
  // A second client arms the loop beside the top-off, so that there is something to suspend.
  bootHeatPaused();
  call(app->releaseLimitUntilFullThenRestore());
  auto second = connectAnother();
  HelperState expected = onDisk();
  ASSERT_TRUE(expected.heatPauseActive);
  ASSERT_TRUE(expected.topUpActive);
  second->disconnect();
  leave(*this);
  mark();
  run(35);
  EXPECT_THAT(timed("disk"), ElementsAre("30.000 disk  state.json replaced: heatPauseActive=false "
                                         "topUpActive=false"));
  EXPECT_THAT(logs(), ElementsAre(suspending, "default top-off restore loop superseded — bailing"));
  expected.heatPauseActive = false;
  expected.topUpActive = false;
  EXPECT_EQ(onDisk(), expected) << "the limit and the time of its last write stay";
}

TEST_F(ClientPresenceTest, SuspensionEndsADischargeOnDiskAndKeepsTheSavedLimit) {
  bootDischarging();
  HelperState expected = onDisk();
  ASSERT_TRUE(expected.forceDischargeActive);
  leaveFor(*this, 30);
  expected.forceDischargeActive = false;
  EXPECT_EQ(onDisk(), expected);
  EXPECT_EQ(onDisk().chargeLimit, 50);
}

TEST_F(ClientPresenceTest, ConnectAfterASuspensionArmsTheSavedLimitAgain) {
  bootWithLimit(50);
  leaveFor(*this, 31);
  mark();
  const auto again = connectAnother();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=1)",
                                  "default client connect — arming polling loop at limit=50"));
}

TEST_F(ClientPresenceTest, InvalidationAtZeroKeepsZeroAndRestartsTheThirtySeconds) {
  Platform& platform = world.startBareHelper();
  saveState(savedLimit(50));
  const auto core = HelperImpl::create(platform);
  core->clientDidConnect();
  core->clientDidDisconnect();
  world.runUntilIdle();
  run(20);
  mark();
  core->clientDidDisconnect();
  run(29.999);
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)"));
  run(0.001);
  EXPECT_EQ(logs().back(), suspending);
}

TEST_F(ClientPresenceTest, ClientThatEndsWhileItIsAcceptedRestartsTheThirtySeconds) {
  for (const auto& [name, moment] : virtualmac::connectionBreaks) {
    SCOPED_TRACE(name);
    Bench bench;
    bench.bootWithLimit(50);
    leaveFor(bench, 20);
    bench.mark();
    bench.mac().connectionsBreak = moment;
    const auto brief = bench.world.connectApp();
    bench.run(29.999);
    EXPECT_THAT(bench.logs(), ElementsAre("default client connected (count=1)",
                                          "default client disconnected (count=0)"));
    bench.run(0.001);
    EXPECT_EQ(bench.logs().back(), suspending);
  }
}

TEST_F(ClientPresenceTest, NothingToSuspendIsSaid) {
  boot();
  leaveFor(*this, 30);
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)",
                                  "default client gone — nothing to suspend (no active limit)"));
  EXPECT_THAT(since("smc disk"), IsEmpty());
}

TEST_F(ClientPresenceTest, IdleKeepAwakeIsDisarmed) {
  boot();
  call(app->setClamshellKeepAwake(true));
  mark();
  leaveFor(*this, 30);
  EXPECT_THAT(
      logs(),
      ElementsAre("default client disconnected (count=0)",
                  "default client gone with keep-awake armed but nothing enforcing — disarming",
                  "default clamshell keep-awake DISARMED",
                  "default client gone — nothing to suspend (no active limit)"));
  EXPECT_FALSE(mac().power.sleepDisabled());
}

TEST_F(ClientPresenceTest, ArmedDischargeGoesOnUnattended) {
  bootArmedDischarge();
  mac().lid.close();
  temperature(30);
  leaveFor(*this, 60);
  EXPECT_THAT(logs(),
              ElementsAre("default client disconnected (count=0)",
                          "default client gone but armed clamshell discharge active — keeping "
                          "enforcement (bounded by target/floor/max-duration)"));
  EXPECT_THAT(since("smc"), IsEmpty());
  EXPECT_EQ(key("CHIE"), "08");
  tickAt(50);
  EXPECT_TRUE(world.logged("HelperImpl", LogLevel::Default,
                           "force-discharge auto-stopped: reason=targetReached"));
}

TEST_F(ClientPresenceTest, UnarmedDischargeIsStoppedItsKeysAndAssertionReleased) {
  bootDischarging();
  leaveFor(*this, 30);
  EXPECT_THAT(since("smc power"), ElementsAre("smc CHIE <- 00", "power assertion 33001 released",
                                              "power assertion 33002 released"));
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)", suspending));
  EXPECT_FALSE(onDisk().forceDischargeActive);
  EXPECT_FALSE(onDisk().lastDischargeAbortReason.has_value());
}

TEST_F(ClientPresenceTest, KeepAwakeWithALoopButNoDischargeIsSuspendedAndDisarmed) {
  bootWithLimit(50);
  call(app->setClamshellKeepAwake(true));
  mark();
  leaveFor(*this, 30);
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)", suspending,
                                  "default clamshell keep-awake DISARMED"));
  EXPECT_THAT(since("smc power disk"),
              ElementsAre("power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false", "smc CHIE <- 00",
                          "disk state.json replaced: no field differs"));
}

TEST_F(ClientPresenceTest, SuspensionOnTheOlderFamilyReleasesItsKeysInReverse) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  leaveFor(bench, 30);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
}

TEST_F(ClientPresenceTest, SuspensionIgnoresKeysThatCannotBeWritten) {
  bootDischarging();
  mac().smc.key("CHIE")->writeResult = 134;
  leaveFor(*this, 30);
  EXPECT_FALSE(onDisk().forceDischargeActive);
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)", suspending));
}

TEST_F(ClientPresenceTest, ToppingOffAloneIsNothingToSuspend) {
  // The polling loop is stopped while a top-off runs, so the top-off goes on by itself.
  bootToppingOff(50);
  mark();
  leaveFor(*this, 31);
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)",
                                  "default client gone — nothing to suspend (no active limit)"));
  EXPECT_TRUE(onDisk().topUpActive);
}

TEST_F(ClientPresenceTest, ClientThatComesBackAtTheLastMomentFindsEnforcementRunning) {
  bootWithLimit(50);
  leaveFor(*this, 29.999);
  const auto again = connectAnother();
  run(10);
  EXPECT_FALSE(world.logged("HelperImpl", LogLevel::Default, std::string(suspending).substr(8)));
}

TEST_F(ClientPresenceTest, TimerThatFiresInAReconnectedWorldDoesNothing) {
  bootWithLimit(50);
  leaveFor(*this, 15);
  const auto again = connectAnother();
  again->disconnect();
  world.runUntilIdle();
  run(20);
  EXPECT_FALSE(world.logged("HelperImpl", LogLevel::Default, std::string(suspending).substr(8)))
      << "thirty seconds count from the last disconnect";
  run(10);
  EXPECT_TRUE(world.logged("HelperImpl", LogLevel::Default, std::string(suspending).substr(8)));
}

}  // namespace
}  // namespace korvel::test
