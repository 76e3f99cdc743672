#include "VirtualMac/InProcess/World.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <set>

#include "Base/Lock.h"
#include "HelperImpl.h"
#include "Platform/Process.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {
namespace {

/// Hashes the journal of the built helper's busy hour under one schedule.
std::uint64_t busyHour(Scheduling scheduling, std::uint64_t seed, bool keepJournal = true) {
  WorldOptions options;
  options.scheduling = scheduling;
  options.seed = seed;
  options.keepJournal = keepJournal;
  World world(options);
  const auto app = world.connectApp();
  const auto other = world.connectApp();
  world.faults().setLatency(SeamCall::smcCallStruct, 0.002);
  app->setChargeLimit(60);
  other->getState();
  app->getState();
  other->setChargeLimit(70);
  app->forceDischarge(true);
  world.runFor(600);
  world.machine().power.requestSleep();
  world.runFor(300);
  world.machine().power.wake();
  other->resetAllSMCKeys();
  app->setChargeLimit(80);
  world.runFor(60);
  app->disconnect();
  world.runFor(2640);
  world.sendSignal(SIGTERM);
  world.runFor(1);
  EXPECT_EQ(world.exitStatus(), 0);
  EXPECT_TRUE(world.violations().empty());
  return world.journal().hash();
}

TEST(WorldDeterminismTest, TwoRunsGiveTheSameJournal) {
  EXPECT_EQ(busyHour(Scheduling::Fifo, 1), busyHour(Scheduling::Fifo, 1));
  for (std::uint64_t seed = 1; seed <= 10; ++seed) {
    EXPECT_EQ(busyHour(Scheduling::Seeded, seed), busyHour(Scheduling::Seeded, seed)) << seed;
  }
}

TEST(WorldDeterminismTest, SeedsGiveDifferentInterleavings) {
  std::set<std::uint64_t> hashes;
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    hashes.insert(busyHour(Scheduling::Seeded, seed));
  }
  EXPECT_GT(hashes.size(), 5U);
}

TEST(WorldDeterminismTest, KeepingTheJournalDoesNotChangeTheHash) {
  EXPECT_EQ(busyHour(Scheduling::Fifo, 1, true), busyHour(Scheduling::Fifo, 1, false));
}

struct WorldTest : testing::Test {
  World world;
};

TEST_F(WorldTest, AnUnknownProfileOrIdentityIsRefused) {
  WorldOptions options;
  options.profile = "no-such-machine";
  EXPECT_THROW(World{options}, std::invalid_argument);
  EXPECT_THROW(world.connectApp("nobody"), std::invalid_argument);
}

TEST_F(WorldTest, LogLinesAreKeptApart) {
  world.startHelper();
  world.runUntilIdle();
  EXPECT_TRUE(
      world.logged("HelperImpl", korvel::LogLevel::Default, "HelperImpl boot pid=501 limit=80"));
  EXPECT_FALSE(
      world.logged("HelperImpl", korvel::LogLevel::Error, "HelperImpl boot pid=501 limit=80"));
  EXPECT_EQ(world.logCount("HelperImpl boot pid=501 limit=80"), 1U);
  EXPECT_EQ(world.logLines("Boot").size(), 1U);
  EXPECT_GT(world.logLines().size(), 3U);
}

TEST_F(WorldTest, RunUntilIdleLetsNoTimePass) {
  const auto app = world.connectApp();
  app->setChargeLimit(60);
  world.runUntilIdle();
  EXPECT_EQ(world.now(), 0);
  EXPECT_TRUE(app->calls()[0]->answered);
}

TEST_F(WorldTest, ATickInSteadyStateCostsTheSameEveryTime) {
  world.machine().battery.setPercent(70);
  const auto app = world.connectApp();
  app->await(app->setChargeLimit(60));
  world.runFor(20);
  const CallCounts start = world.callCounts();
  world.runFor(5);
  const CallCounts tick = world.callCounts() - start;
  const CallCounts later = world.callCounts();
  world.runFor(5);
  EXPECT_EQ(world.callCounts() - later, tick);
  EXPECT_EQ(tick[SeamCall::fileWrite], 0U);
  EXPECT_EQ(tick[SeamCall::logEmit], 0U);
  EXPECT_GT(tick.total, 0U);
}

TEST_F(WorldTest, SleepFreezesTheHelperAndWakeGoesOn) {
  world.machine().battery.setPercent(50);
  const auto app = world.connectApp();
  app->await(app->setChargeLimit(60));
  world.runFor(3);
  world.machine().power.requestSleep();
  world.runFor(1);
  EXPECT_TRUE(world.machine().power.isAsleep());
  const CallCounts before = world.callCounts();
  const AppCallRef call = app->getState();
  world.runFor(3600);
  EXPECT_EQ(world.callCounts(), before);
  EXPECT_FALSE(call->over());
  world.machine().power.wake();
  world.runUntilIdle();
  EXPECT_TRUE(call->answered);
  EXPECT_NE(world.callCounts(), before);
}

TEST_F(WorldTest, APlatformCallThatTakesTimeLetsOtherThreadsRun) {
  const auto app = world.connectApp();
  const auto other = world.connectApp();
  world.runUntilIdle();
  world.faults().setLatency(SeamCall::smcCallStruct, 0.5);
  const AppCallRef slow = app->resetAllSMCKeys();
  const AppCallRef quick = other->ping();
  world.runUntilIdle();
  EXPECT_TRUE(quick->answered);
  EXPECT_FALSE(slow->over());
  EXPECT_TRUE(app->await(slow).answered);
  EXPECT_GT(world.now(), 0.5);
}

TEST_F(WorldTest, AnInjectedFaultReplacesACall) {
  world.faults().failAlways(SeamCall::smcOpen, {-536870207, {}});
  const auto app = world.connectApp();
  const auto record = app->capabilityRecord();
  ASSERT_TRUE(record);
  EXPECT_FALSE(record->tahoeCharging);
  EXPECT_EQ(world.machine().smc.totalReads(), 0U);
}

TEST_F(WorldTest, AFaultMayChangeWhatACallReads) {
  world.machine().battery.setPercent(90);
  const auto app = world.connectApp();
  app->await(app->setChargeLimit(80));
  world.runFor(1);
  EXPECT_EQ(app->state()->lastWriteVerified, true);
  const InjectedFault lie{0, {}, true};
  world.faults().failAlways(SeamCall::smcCallStruct, lie);
  world.runFor(5);
  EXPECT_EQ(app->state()->lastWriteVerified, false) << "the key reads back differently";
  world.faults().clear();
  world.runFor(5);
  EXPECT_EQ(app->state()->lastWriteVerified, true);
  world.faults().failNth(SeamCall::fileRead, 1, lie);
  app->await(app->setChargeLimit(70));
  EXPECT_NE(world.journal().text("log").find("read-back verify failed: on-disk bytes"),
            std::string::npos);
}

TEST_F(WorldTest, KilledAtAnyCallOfItsStartTheHelperUnwindsAndTheNextOneStarts) {
  world.startHelper();
  world.runUntilIdle();
  const std::uint64_t calls = world.callCounts().total;
  ASSERT_GT(calls, 30U);
  for (std::uint64_t k = 1; k <= calls; ++k) {
    World killed;
    killed.faults().killAtCall(k);
    killed.startHelper();
    killed.runUntilIdle();
    ASSERT_FALSE(killed.helperRunning()) << "at call " << k;
    ASSERT_EQ(killed.callCounts().total, k) << "calls went on";
    const auto app = killed.connectApp();
    ASSERT_TRUE(app->state()) << "at call " << k;
    ASSERT_TRUE(killed.violations().empty()) << "at call " << k;
  }
}

TEST_F(WorldTest, ADeadlockOfTheHelperIsThrownWithItsHolders) {
  korvel::Platform& platform = world.startBareHelper();
  const auto queue = platform.dispatch.makeSerialQueue("smc");
  korvel::Lock lock(platform.dispatch.makeLock("state"));
  world.onThread("xpc", [&] {
    const korvel::ScopedLock held(lock);
    queue->sync([] {});
  });
  queue->async([&] { const korvel::ScopedLock held(lock); });
  std::string report;
  try {
    world.runFor(1);
  } catch (const StuckError& error) {
    report = error.what();
  }
  EXPECT_EQ(report, "smc waits for lock state held by xpc; xpc waits for sync smc held by smc");
  world.killHelper();
}

using BareHelperTest = WorldTest;

TEST_F(BareHelperTest, ATestBuildsItsOwnCoreOnItsOwnThread) {
  korvel::Platform& platform = world.startBareHelper();
  const std::shared_ptr<korvel::HelperImpl> core = korvel::HelperImpl::create(platform);
  world.runUntilIdle();
  std::optional<bool> answer;
  core->setChargeLimit(
      70,
      korvel::Reply(
          std::make_unique<korvel::FunctionReplySink<bool, std::optional<korvel::ErrorObject>>>(
              [&](bool success, const std::optional<korvel::ErrorObject>&) { answer = success; })));
  EXPECT_FALSE(answer);
  world.runUntilIdle();
  EXPECT_EQ(answer, true);
}

TEST_F(BareHelperTest, ATestBuildsItsOwnCoreOnTheMainThread) {
  world.startBareHelper();
  std::shared_ptr<korvel::HelperImpl> core;
  world.onMain([&] { core = korvel::HelperImpl::create(world.platform()); });
  ASSERT_NE(core, nullptr);
  EXPECT_EQ(world.logCount("HelperImpl boot pid=501 limit=80"), 1U);
}

TEST_F(BareHelperTest, WorkQueuedForACoreThatIsGoneIsAnsweredWithoutIt) {
  std::shared_ptr<korvel::HelperImpl> core = korvel::HelperImpl::create(world.startBareHelper());
  world.runUntilIdle();
  std::optional<bool> answer;
  core->cancelTopUp(korvel::Reply(
      std::make_unique<korvel::FunctionReplySink<bool, std::optional<korvel::ErrorObject>>>(
          [&](bool success, const std::optional<korvel::ErrorObject>& error) {
            answer = success;
            EXPECT_FALSE(error);
          })));
  core = nullptr;
  world.runUntilIdle();
  EXPECT_EQ(answer, false);
}

TEST_F(BareHelperTest, ACoreThatOutlivesItsProcessDoesNothing) {
  std::shared_ptr<korvel::HelperImpl> core = korvel::HelperImpl::create(world.startBareHelper());
  world.runUntilIdle();
  const CallCounts before = world.callCounts();
  world.killHelper();
  EXPECT_THROW(core->quit(), ProcessEnded);
  core = nullptr;
  EXPECT_EQ(world.callCounts(), before);
}

TEST_F(BareHelperTest, OnMainReturnsWhenTheProcessDiesInside) {
  world.startBareHelper();
  bool after = false;
  world.onMain([&] {
    world.platform().process.exit(4);
    after = true;
  });
  EXPECT_FALSE(after);
  EXPECT_EQ(world.exitStatus(), 4);
}

}  // namespace
}  // namespace virtualmac
