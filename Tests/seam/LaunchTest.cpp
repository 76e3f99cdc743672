#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include "FakeHelper.h"
#include "Platform/PowerAssertions.h"
#include "Platform/SMCUserClient.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {
namespace {

struct LaunchTest : testing::Test {
  FakeHelper helper;
  World world{helper.options()};
};

TEST_F(LaunchTest, TheFirstConnectionStartsTheHelper) {
  EXPECT_FALSE(world.helperRunning());
  const auto app = world.connectApp();
  EXPECT_TRUE(world.helperRunning());
  EXPECT_TRUE(app->await(app->ping()).answered);
  const auto second = world.connectApp();
  EXPECT_EQ(second->await(second->ping()).pid, 501U) << "and no further one";
}

TEST_F(LaunchTest, WithoutThatAConnectionWaitsForAHelper) {
  world.launchd().job.startOnDemand = false;
  const auto app = world.connectApp();
  const AppCallRef call = app->ping();
  world.runFor(60);
  EXPECT_FALSE(call->over());
  world.startHelper();
  EXPECT_TRUE(app->await(call).answered);
}

TEST_F(LaunchTest, OnlyOneHelperAtATime) {
  world.startHelper();
  EXPECT_THROW(world.startHelper(), std::logic_error);
  EXPECT_THROW(world.startBareHelper(), std::logic_error);
}

TEST_F(LaunchTest, KillingDropsWhatTheProcessHeldAndNothingElse) {
  world.startHelper();
  world.runUntilIdle();
  std::uint32_t assertion = 0;
  world.platform().assertions.createWithProperties(
      korvel::PropertyValue::Dictionary{{"AssertType", "PreventUserIdleSystemSleep"},
                                        {"AssertName", "test"},
                                        {"AssertLevel", 255}},
      assertion);
  world.machine().smc.setValue("CHTE", {1, 0, 0, 0});
  ASSERT_EQ(world.machine().power.assertions().size(), 1U);
  world.killHelper();
  EXPECT_FALSE(world.helperRunning());
  EXPECT_FALSE(world.exitStatus());
  EXPECT_TRUE(world.machine().power.assertions().empty());
  EXPECT_EQ(world.machine().smc.value("CHTE"), (std::vector<std::uint8_t>{1, 0, 0, 0}));
  EXPECT_EQ(world.journal().text("proc"),
            "0.000 proc  helper 501 started\n0.000 proc  helper 501 killed by signal 9\n");
}

TEST_F(LaunchTest, ACrashedHelperIsStartedAgainWhenThePolicySaysSo) {
  helper.statusWhenTold = 0;
  world.launchd().job.restartAfterCrash = true;
  world.startHelper();
  world.runUntilIdle();
  world.killHelper();
  EXPECT_TRUE(world.helperRunning());
  EXPECT_EQ(world.helperPid(), 502);
  world.runUntilIdle();
  world.sendSignal(SIGTERM);
  world.runUntilIdle();
  EXPECT_FALSE(world.helperRunning()) << "an exit is no crash";
  EXPECT_EQ(world.exitStatus(), 0);
}

TEST_F(LaunchTest, AnExitWithAnotherStatusThanZeroIsACrash) {
  world.launchd().job.restartAfterCrash = true;
  world.startHelper();
  world.runUntilIdle();
  world.sendSignal(SIGTERM);
  world.runUntilIdle();
  EXPECT_EQ(world.helperPid(), 502);
}

TEST_F(LaunchTest, AMacsJobStartsTheHelperAtBootAndHoldsItBackAfterACrash) {
  world.launchd().job = LaunchdJob();
  world.launchd().load();
  EXPECT_EQ(world.helperPid(), 501);
  world.runFor(4);
  world.killHelper();
  const auto app = world.connectApp();
  world.runFor(5.9);
  EXPECT_FALSE(world.helperRunning()) << "ten seconds from one start to the next";
  world.runFor(0.2);
  EXPECT_EQ(world.helperPid(), 502);
  world.powerLoss();
  EXPECT_EQ(world.helperPid(), 503) << "what was before a boot does not hold it back";
}

TEST_F(LaunchTest, AMacThatIsPoweredOnAgainStartsItsHelper) {
  world.launchd().job = LaunchdJob();
  world.launchd().load();
  world.machine().adapter.disconnect();
  world.machine().battery.setPercent(0.001);
  world.runFor(3600);
  ASSERT_TRUE(world.machine().isOff());
  const auto app = world.connectApp();
  world.runFor(60);
  EXPECT_FALSE(world.helperRunning());
  world.machine().adapter.connect();
  EXPECT_TRUE(app->await(app->ping()).answered);
}

TEST_F(LaunchTest, NothingIsStartedWhileTheMachineGoesDown) {
  world.launchd().job.restartAfterCrash = true;
  world.startHelper();
  world.powerLoss();
  EXPECT_FALSE(world.helperRunning());
  const auto app = world.connectApp();
  EXPECT_TRUE(app->await(app->ping()).answered) << "the next demand starts a helper";
  EXPECT_NE(world.machine().process(world.helperPid().value_or(0)), nullptr);
}

TEST_F(LaunchTest, AWorldMayEndRightAfterItsHelperExited) {
  World ending(helper.options());
  ending.startHelper();
  ending.runUntilIdle();
  ending.sendSignal(SIGTERM);
  EXPECT_TRUE(ending.runUntil([&ending] { return !ending.helperRunning(); }, 1));
}

TEST_F(LaunchTest, AnIgnoredSignalReachesItsSource) {
  world.startHelper();
  world.runUntilIdle();
  world.sendSignal(SIGTERM);
  EXPECT_TRUE(world.helperRunning());
  world.runUntilIdle();
  EXPECT_EQ(helper.notes, "SIGTERM ");
  EXPECT_EQ(world.exitStatus(), 3);
  EXPECT_EQ(world.journal().text("proc"),
            "0.000 proc  helper 501 started\n"
            "0.000 proc  signal 15 to helper 501\n"
            "0.000 proc  helper 501 exited 3\n");
}

TEST_F(LaunchTest, ASignalWhoseDefaultActionWasNotTakenAwayKills) {
  helper.ignoresSignals = false;
  world.startHelper();
  world.runUntilIdle();
  world.sendSignal(SIGTERM);
  EXPECT_FALSE(world.helperRunning());
  EXPECT_FALSE(world.exitStatus());
  EXPECT_EQ(helper.notes, "");
  EXPECT_NE(world.journal().text("proc").find("helper 501 killed by signal 15"), std::string::npos);
}

TEST_F(LaunchTest, ASignalBeforeTheHelperIsReadyKills) {
  world.startHelper();
  world.sendSignal(SIGINT);
  EXPECT_FALSE(world.helperRunning());
  world.runFor(1);
  EXPECT_EQ(helper.seam, nullptr) << "it never ran";
}

TEST_F(LaunchTest, TheKillSignalKills) {
  world.startHelper();
  world.runUntilIdle();
  world.sendSignal(SIGKILL);
  EXPECT_FALSE(world.helperRunning());
}

TEST_F(LaunchTest, PowerLossEndsTheHelperAndWhatWasNotFlushed) {
  world.startHelper();
  world.runUntilIdle();
  world.machine().power.setSleepDisabledExternally(true);
  world.powerLoss();
  EXPECT_FALSE(world.helperRunning());
  EXPECT_FALSE(world.machine().power.sleepDisabled());
  world.startHelper();
  world.runUntilIdle();
  EXPECT_TRUE(world.helperRunning());
}

TEST_F(LaunchTest, AnEmptyBatteryEndsTheHelper) {
  world.startHelper();
  world.runUntilIdle();
  world.machine().adapter.disconnect();
  world.machine().battery.setPercent(0.001);
  world.runFor(3600);
  EXPECT_FALSE(world.helperRunning());
  EXPECT_TRUE(world.machine().isOff());
}

TEST_F(LaunchTest, ExitFromAnyThreadEndsTheProcess) {
  world.startHelper();
  world.runUntilIdle();
  std::string unwound;
  struct Witness {
    std::string& notes;
    std::string name;
    ~Witness() { notes += name + ' '; }
  };
  world.onThread("waits", [&] {
    const Witness witness{unwound, "waits"};
    helper.seam->dispatch.makeGroup();
    const auto group = helper.seam->dispatch.makeGroup();
    group->enter();
    group->wait(100);
    ADD_FAILURE() << "went on after the end";
  });
  world.onThread("exits", [&] {
    const Witness witness{unwound, "exits"};
    helper.seam->process.exit(7);
  });
  world.runFor(1);
  EXPECT_EQ(world.exitStatus(), 7);
  EXPECT_EQ(unwound, "exits waits ");
}

TEST_F(LaunchTest, AThousandWorldsNeedNoMoreThreadsThanOne) {
  const auto exercise = [] {
    FakeHelper each;
    World other(each.options());
    const auto app = other.connectApp();
    ASSERT_TRUE(app->await(app->ping()).answered);
  };
  exercise();
  const std::size_t before = hostsystem::threadCount();
  for (int i = 0; i < 1000; ++i) exercise();
  EXPECT_EQ(hostsystem::threadCount(), before);
}

}  // namespace
}  // namespace virtualmac
