// Counting clients, the grace period after the last one, and what is suspended when it ends.

#include "HelperImpl.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

constexpr const char* suspending =
    "default all clients gone — suspending enforcement, resuming normal charging (saved limit=50 "
    "retained)";

std::unique_ptr<AppClient> connectAnother(Bench& bench) {
  auto client = bench.world.connectApp();
  client->await(client->ping());
  bench.world.runUntilIdle();
  return client;
}

void leave(Bench& bench) {
  bench.app->disconnect();
  bench.world.runUntilIdle();
}

TEST(ClientPresenceTest, QuickReturnKeepsTheLoopRunningWithoutAGap) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  std::vector<double> ticks;
  bench.world.faults().observe([&](SeamCall call) {
    if (call == SeamCall::powerSourcesCopyInfo) ticks.push_back(bench.world.now());
  });
  leave(bench);
  bench.run(29.5);
  const auto again = connectAnother(bench);
  bench.run(31);
  EXPECT_THAT(bench.logs(), ElementsAre("default client disconnected (count=0)",
                                        "default charge enforcement pause:ok",
                                        "default client connected (count=1)"));
  EXPECT_EQ(ticks.size(), 12U);
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00");
}

TEST(ClientPresenceTest, OneOfTwoLeavingStartsNoTimer) {
  Bench bench;
  bench.bootWithLimit(50);
  const auto second = connectAnother(bench);
  leave(bench);
  bench.run(120);
  EXPECT_THAT(bench.logs(), ElementsAre("default client connected (count=2)",
                                        "default client disconnected (count=1)"));
}

TEST(ClientPresenceTest, ConnectWhileTheLoopRunsChangesNothingButCountAndLog) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.run(2);
  const auto before = bench.world.callCounts();
  const auto second = connectAnother(bench);
  EXPECT_EQ((bench.world.callCounts() - before)[SeamCall::powerSourcesCopyInfo], 0U)
      << "the loop was restarted";
  EXPECT_THAT(bench.logs(), ElementsAre("default client connected (count=2)"));
  EXPECT_THAT(bench.since("smc disk"), IsEmpty());
}

TEST(ClientPresenceTest, SavedLimitIsArmedByTheFirstConnect) {
  Bench bench;
  bench.saveState(savedLimit(70));
  bench.charge(75);
  bench.boot();
  EXPECT_TRUE(bench.world.logged("HelperImpl", LogLevel::Default,
                                 "client connect — arming polling loop at limit=70"));
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00");
}

TEST(ClientPresenceTest, SavedLimitOfHundredIsArmedHandedBackAndStopped) {
  Bench bench;
  bench.saveState(savedLimit(100));
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.boot();
  EXPECT_EQ(bench.key("CHTE"), "00 00 00 00");
  EXPECT_TRUE(bench.world.logged("HelperImpl", LogLevel::Default,
                                 "100% target — returned charging to macOS and stopped "
                                 "enforcement"));
}

TEST(ClientPresenceTest, LimitsOutsideTwentyToHundredArmNothing) {
  for (const int limit : {19, 101, 0, -3}) {
    Bench bench;
    bench.saveState(savedLimit(limit));
    bench.charge(100);
    bench.world.startHelper();
    bench.world.runUntilIdle();
    bench.mark();
    const auto client = connectAnother(bench);
    const auto before = bench.world.callCounts();
    bench.run(30);
    EXPECT_THAT(bench.logs(), ElementsAre("default client connected (count=1)")) << limit;
    EXPECT_EQ((bench.world.callCounts() - before).text(), "") << limit;
    EXPECT_EQ(bench.mac().smc.totalWrites(), 0U) << limit;
  }
}

TEST(ClientPresenceTest, FreshInstallArmsNothingOnConnectAlsoAfterARestart) {
  Bench bench;
  bench.charge(95);
  bench.boot();
  bench.run(30);
  EXPECT_EQ(bench.mac().smc.totalWrites(), 0U);
  bench.world.killHelper();
  bench.boot();
  bench.run(30);
  EXPECT_EQ(bench.mac().smc.totalWrites(), 0U)
      << "the distant past must come back from the file as itself";
  EXPECT_FALSE(bench.world.logged("HelperImpl", LogLevel::Default,
                                  "client connect — arming polling loop at limit=80"));
}

TEST(ClientPresenceTest, SuspensionResumesChargingAndKeepsTheSavedLimit) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  bench.run(5);
  ASSERT_EQ(bench.key("CHTE"), "01 00 00 00");
  bench.mark();
  leave(bench);
  bench.run(29.999);
  EXPECT_EQ(bench.key("CHTE"), "01 00 00 00");
  bench.run(0.001);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CHIE <- 00", "smc CHTE <- 00 00 00 00"));
  EXPECT_THAT(bench.logs(), ElementsAre("default client disconnected (count=0)", suspending));
  const HelperState record = bench.onDisk();
  EXPECT_EQ(record.chargeLimit, 50);
  EXPECT_FALSE(record.forceDischargeActive);
  EXPECT_FALSE(record.heatPauseActive);
  EXPECT_FALSE(record.topUpActive);
  const auto before = bench.world.callCounts();
  bench.run(60);
  EXPECT_EQ((bench.world.callCounts() - before).text(), "") << "something still ticks";
}

TEST(ClientPresenceTest, SuspensionClearsItsFlagsOnDiskAndSupersedesATopOff) {
  // A second client arms the loop beside the top-off, so that there is something to suspend.
  Bench bench;
  HelperState record = savedLimit(50);
  record.heatPauseActive = true;
  bench.saveState(record);
  bench.charge(49);
  bench.boot();
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  auto second = connectAnother(bench);
  HelperState expected = bench.onDisk();
  ASSERT_TRUE(expected.heatPauseActive);
  ASSERT_TRUE(expected.topUpActive);
  second->disconnect();
  leave(bench);
  bench.mark();
  bench.run(35);
  EXPECT_THAT(bench.timed("disk"),
              ElementsAre("30.000 disk  state.json replaced: heatPauseActive=false "
                          "topUpActive=false"));
  EXPECT_THAT(bench.logs(),
              ElementsAre(suspending, "default top-off restore loop superseded — bailing"));
  expected.heatPauseActive = false;
  expected.topUpActive = false;
  EXPECT_EQ(bench.onDisk(), expected) << "the limit and the time of its last write stay";
}

TEST(ClientPresenceTest, SuspensionEndsADischargeOnDiskAndKeepsTheSavedLimit) {
  Bench bench;
  bench.bootDischarging();
  HelperState expected = bench.onDisk();
  ASSERT_TRUE(expected.forceDischargeActive);
  leave(bench);
  bench.run(30);
  expected.forceDischargeActive = false;
  EXPECT_EQ(bench.onDisk(), expected);
  EXPECT_EQ(bench.onDisk().chargeLimit, 50);
}

TEST(ClientPresenceTest, ConnectAfterASuspensionArmsTheSavedLimitAgain) {
  Bench bench;
  bench.bootWithLimit(50);
  leave(bench);
  bench.run(31);
  bench.mark();
  const auto again = connectAnother(bench);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default client connected (count=1)",
                          "default client connect — arming polling loop at limit=50"));
}

TEST(ClientPresenceTest, InvalidationAtZeroKeepsZeroAndRestartsTheThirtySeconds) {
  Bench bench;
  Platform& platform = bench.world.startBareHelper();
  bench.saveState(savedLimit(50));
  const auto core = HelperImpl::create(platform);
  core->clientDidConnect();
  core->clientDidDisconnect();
  bench.world.runUntilIdle();
  bench.run(20);
  bench.mark();
  core->clientDidDisconnect();
  bench.run(29.999);
  EXPECT_THAT(bench.logs(), ElementsAre("default client disconnected (count=0)"));
  bench.run(0.001);
  EXPECT_EQ(bench.logs().back(), suspending);
}

TEST(ClientPresenceTest, ClientThatEndsWhileItIsAcceptedRestartsTheThirtySeconds) {
  for (const auto& [name, moment] : virtualmac::connectionBreaks) {
    SCOPED_TRACE(name);
    Bench bench;
    bench.bootWithLimit(50);
    leave(bench);
    bench.run(20);
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

TEST(ClientPresenceTest, NothingToSuspendIsSaid) {
  Bench bench;
  bench.boot();
  leave(bench);
  bench.run(30);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default client disconnected (count=0)",
                          "default client gone — nothing to suspend (no active limit)"));
  EXPECT_THAT(bench.since("smc disk"), IsEmpty());
}

TEST(ClientPresenceTest, IdleKeepAwakeIsDisarmed) {
  Bench bench;
  bench.boot();
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mark();
  leave(bench);
  bench.run(30);
  EXPECT_THAT(
      bench.logs(),
      ElementsAre("default client disconnected (count=0)",
                  "default client gone with keep-awake armed but nothing enforcing — disarming",
                  "default clamshell keep-awake DISARMED",
                  "default client gone — nothing to suspend (no active limit)"));
  EXPECT_FALSE(bench.mac().power.sleepDisabled());
}

TEST(ClientPresenceTest, ArmedDischargeGoesOnUnattended) {
  Bench bench;
  bench.bootArmedDischarge();
  bench.mac().lid.close();
  bench.temperature(30);
  leave(bench);
  bench.run(60);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default client disconnected (count=0)",
                          "default client gone but armed clamshell discharge active — keeping "
                          "enforcement (bounded by target/floor/max-duration)"));
  EXPECT_THAT(bench.since("smc"), IsEmpty());
  EXPECT_EQ(bench.key("CHIE"), "08");
  bench.charge(50);
  bench.run(5);
  EXPECT_TRUE(bench.world.logged("HelperImpl", LogLevel::Default,
                                 "force-discharge auto-stopped: reason=targetReached"));
}

TEST(ClientPresenceTest, UnarmedDischargeIsStoppedItsKeysAndAssertionReleased) {
  Bench bench;
  bench.bootDischarging();
  leave(bench);
  bench.run(30);
  EXPECT_THAT(bench.since("smc power"),
              ElementsAre("smc CHIE <- 00", "power assertion 33001 released",
                          "power assertion 33002 released"));
  EXPECT_THAT(bench.logs(), ElementsAre("default client disconnected (count=0)", suspending));
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
  EXPECT_FALSE(bench.onDisk().lastDischargeAbortReason.has_value());
}

TEST(ClientPresenceTest, KeepAwakeWithALoopButNoDischargeIsSuspendedAndDisarmed) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.mark();
  leave(bench);
  bench.run(30);
  EXPECT_THAT(bench.logs(), ElementsAre("default client disconnected (count=0)", suspending,
                                        "default clamshell keep-awake DISARMED"));
  EXPECT_THAT(bench.since("smc power disk"),
              ElementsAre("power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false", "smc CHIE <- 00",
                          "disk state.json replaced: no field differs"));
}

TEST(ClientPresenceTest, SuspensionOnTheOlderFamilyReleasesItsKeysInReverse) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  leave(bench);
  bench.run(30);
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
}

TEST(ClientPresenceTest, SuspensionIgnoresKeysThatCannotBeWritten) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().smc.key("CHIE")->writeResult = 134;
  leave(bench);
  bench.run(30);
  EXPECT_FALSE(bench.onDisk().forceDischargeActive);
  EXPECT_THAT(bench.logs(), ElementsAre("default client disconnected (count=0)", suspending));
}

TEST(ClientPresenceTest, ToppingOffAloneIsNothingToSuspend) {
  // The polling loop is stopped while a top-off runs, so the top-off goes on by itself.
  Bench bench;
  bench.bootWithLimit(50);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.mark();
  leave(bench);
  bench.run(31);
  EXPECT_THAT(bench.logs(),
              ElementsAre("default client disconnected (count=0)",
                          "default client gone — nothing to suspend (no active limit)"));
  EXPECT_TRUE(bench.onDisk().topUpActive);
}

TEST(ClientPresenceTest, ClientThatComesBackAtTheLastMomentFindsEnforcementRunning) {
  Bench bench;
  bench.bootWithLimit(50);
  leave(bench);
  bench.run(29.999);
  const auto again = connectAnother(bench);
  bench.run(10);
  EXPECT_FALSE(
      bench.world.logged("HelperImpl", LogLevel::Default, std::string(suspending).substr(8)));
}

TEST(ClientPresenceTest, TimerThatFiresInAReconnectedWorldDoesNothing) {
  Bench bench;
  bench.bootWithLimit(50);
  leave(bench);
  bench.run(15);
  const auto again = connectAnother(bench);
  again->disconnect();
  bench.world.runUntilIdle();
  bench.run(20);
  EXPECT_FALSE(
      bench.world.logged("HelperImpl", LogLevel::Default, std::string(suspending).substr(8)))
      << "thirty seconds count from the last disconnect";
  bench.run(10);
  EXPECT_TRUE(
      bench.world.logged("HelperImpl", LogLevel::Default, std::string(suspending).substr(8)));
}

}  // namespace
}  // namespace korvel::test
