// The order of steps matters here: other orders leave the same Mac, but a crash, a client or an
// observer in between would notice the difference.

#include <csignal>

#include "HelperEntry.h"
#include "HelperImpl.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"
#include "Tests/behaviour/EntryDoubles.h"
#include "Tests/behaviour/Steps.h"

namespace korvel::test {
namespace {

using StepsTest = OnBench;

TEST_F(StepsTest, UserStopPausesThenDisarmsThenReleasesItsAssertions) {
  bootArmedDischarge();
  const Steps steps(*this, "smc power disk reply");
  ASSERT_EQ(ask(app->forceDischarge(false)), "ok");
  EXPECT_THAT(steps.lines(),
              ElementsAre("smc CHIE <- 00", "smc CHTE <- 01 00 00 00", "power SleepDisabled = 0",
                          "disk state.json replaced: sleepDisabledByKorvel=false",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "disk state.json replaced: forceDischargeActive=false",
                          "reply forceDischarge ok"));
}

TEST_F(StepsTest, SuspensionReleasesItsAssertionsBeforeItResumesCharging) {
  bootDischarging();
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  app->disconnect();
  const Steps steps(*this, "smc power disk");
  run(30);
  EXPECT_THAT(steps.lines(),
              ElementsAre("starts the grace period", "cancels the grace period",
                          "cancels enforcement", "smc CHIE <- 00", "power assertion 33001 released",
                          "power assertion 33002 released", "smc CHTE <- 00 00 00 00",
                          "disk state.json replaced: forceDischargeActive=false"));
}

TEST_F(StepsTest, TopOffRepliesBeforeItsLoopStarts) {
  bootWithLimit(80);
  const Steps steps(*this, "smc disk reply");
  ASSERT_EQ(ask(app->releaseLimitUntilFullThenRestore()), "ok");
  EXPECT_THAT(steps.lines(),
              ElementsAre("cancels enforcement", "smc CHIE <- 00",
                          "disk state.json replaced: topUpActive=true",
                          "reply releaseLimitUntilFullThenRestore ok", "starts the restore loop"));
}

TEST_F(StepsTest, CompletedTopOffStartsEnforcementBeforeItSaysSo) {
  bootToppingOff(80, 100);
  const Steps steps(*this, "disk log smc");
  run(5);
  ASSERT_GE(steps.lines().size(), 5U);
  EXPECT_THAT(Lines(steps.lines().begin(), steps.lines().begin() + 5),
              ElementsAre("cancels the restore loop", "disk state.json replaced: topUpActive=false",
                          "starts enforcement",
                          "log HelperImpl default \"top-off complete — restored limit 80\"",
                          "smc CHTE <- 01 00 00 00"));
}

TEST_F(StepsTest, TopOffThatTimesOutSaysSoBeforeItStartsEnforcement) {
  bootToppingOff(80);
  const Steps steps(*this, "disk log");
  run(1440 * 5);
  EXPECT_THAT(steps.lines(),
              ElementsAre("log HelperImpl error \"top-off restore loop timed out without reaching "
                          "100% — restoring limit\"",
                          "cancels the restore loop", "disk state.json replaced: topUpActive=false",
                          "starts enforcement"));
}

TEST_F(StepsTest, ShutdownCancelsTheLoopBeforeItTouchesTheHardware) {
  bootWithLimit(50);
  const Steps steps(*this, "smc power proc");
  world.sendSignal(SIGTERM);
  world.runUntilIdle();
  ASSERT_GE(steps.lines().size(), 4U);
  EXPECT_THAT(Lines(steps.lines().begin(), steps.lines().begin() + 4),
              ElementsAre("proc signal 15 to helper 501", "cancels enforcement",
                          "smc CHTE <- 00 00 00 00", "smc CHIE <- 00"));
}

/// Counts the work items on the queue that guards the list of assertions.
class BookkeepingVisits final : public virtualmac::ScheduleObserver {
 public:
  explicit BookkeepingVisits(Bench& watched) : world(watched.world) {
    world.observers().add(*this);
  }
  ~BookkeepingVisits() override { world.observers().remove(*this); }
  BookkeepingVisits(const BookkeepingVisits&) = delete;
  BookkeepingVisits& operator=(const BookkeepingVisits&) = delete;

  int count = 0;
  void workBegins(const virtualmac::Lane& lane, std::uint64_t /*number*/) override {
    if (lane.name() == "com.korvel.app.helper.iopm") ++count;
  }

 private:
  World& world;
};

TEST_F(StepsTest, ResetEmptiesTheBookkeepingOfAssertionsAlsoWhenTheCoreKnowsOfNone) {
  boot();
  const BookkeepingVisits visits(*this);
  call(app->resetAllSMCKeys());
  EXPECT_EQ(visits.count, 2) << "once for a copy, once to forget";
}

TEST_F(StepsTest, ShutdownEmptiesTheBookkeepingOfAssertionsAlsoWhenTheCoreKnowsOfNone) {
  boot();
  const BookkeepingVisits visits(*this);
  world.sendSignal(SIGTERM);
  world.runUntilIdle();
  EXPECT_EQ(world.exitStatus(), 0);
  EXPECT_EQ(visits.count, 2) << "once for a copy, once to forget";
}

/// A connection that records its resumption among the other steps.
class NotedConnection final : public XPCConnection {
 public:
  explicit NotedConnection(Steps& into) : steps(into) {}
  void setExportedInterface(const XPCInterface&) override {}
  void setExportedObject(std::shared_ptr<KorvelHelperProtocol>) override {}
  bool setCodeSigningRequirement(const std::string&) override { return true; }
  void setInvalidationHandler(std::function<void()>) override {}
  void setInterruptionHandler(std::function<void()>) override {}
  void resume() override { steps.note("resume"); }

 private:
  Steps& steps;
};

TEST_F(StepsTest, ConnectionIsResumedThenCalledAcceptedThenCounted) {
  Platform& platform = world.startBareHelper();
  const auto core = HelperImpl::create(platform);
  const auto delegate = std::make_shared<HelperListenerDelegate>(platform, core, "ABCDE12345");
  world.runUntilIdle();
  Steps steps(*this, "log");
  NotedConnection connection(steps);
  EXPECT_TRUE(delegate->shouldAcceptNewConnection(connection));
  world.runUntilIdle();
  EXPECT_THAT(steps.lines(),
              ElementsAre("resume",
                          "log Listener default \"accepted XPC connection (requirement set, "
                          "team=ABCDE12345)\"",
                          "log HelperImpl default \"client connected (count=1)\""));
}

TEST_F(StepsTest, CoreRegistersForPowerMessagesBeforeItTrapsAnAbort) {
  Platform& real = world.startBareHelper();
  RecordingHost host(real.dispatch, real.xpc);
  ScriptedRootDomain rootDomain;
  rootDomain.atRegistration = [&host] { host.steps.emplace_back("register for power messages"); };
  Platform platform = with(real, host, rootDomain);
  const auto core = HelperImpl::create(platform);
  EXPECT_THAT(host.steps, ElementsAre("register for power messages", "source 6", "handler 6",
                                      "resume 6", "ignore 6"));
}

}  // namespace
}  // namespace korvel::test
