#include "VirtualMac/Machine/Launchd.h"

#include <gtest/gtest.h>

#include <vector>

namespace virtualmac {
namespace {

using Actions = std::vector<LaunchdAction>;
const Actions start{LaunchdAction::Start};

Nanoseconds at(double seconds) { return fromSeconds(seconds); }

/// Each event comes at its second, and returns what launchd does then.
struct LaunchdTest : testing::Test {
  LaunchdTest() {
    launchd.job.startAtBoot = false;
    launchd.setHands([this](LaunchdAction action) { done.push_back(action); });
  }
  Actions load(double when) {
    return on(when, [this] { launchd.load(); });
  }
  Actions demand(double when) {
    return on(when, [this] { launchd.demand(); });
  }
  Actions crashed(double when) {
    return on(when, [this] { launchd.exited(true); });
  }
  Actions ended(double when) {
    return on(when, [this] { launchd.exited(false); });
  }
  Actions unload(double when) {
    return on(when, [this] { launchd.unload(); });
  }
  Actions elapsed(double when) {
    return on(when, [this] { launchd.settle(); });
  }
  Actions on(double when, const std::function<void()>& event) {
    context.total = at(when);
    done.clear();
    event();
    return done;
  }

  Journal journal{[] { return 0.0; }};
  MachineContext context{journal};
  Launchd launchd{context};
  Actions done;
};

TEST_F(LaunchdTest, TheFirstDemandStartsTheHelper) {
  EXPECT_EQ(load(1), Actions{});
  EXPECT_EQ(demand(2), start);
  EXPECT_EQ(demand(3), Actions{}) << "it runs already";
  EXPECT_TRUE(launchd.isRunning());
}

TEST_F(LaunchdTest, ADemandBeforeTheJobIsLoadedIsServedWhenItIs) {
  EXPECT_EQ(demand(0), Actions{}) << "not loaded";
  EXPECT_EQ(load(1), start);
}

TEST_F(LaunchdTest, AMacsJobStartsTheHelperAtBoot) {
  launchd.job = LaunchdJob();
  EXPECT_EQ(load(0), start);
  EXPECT_EQ(load(1), Actions{}) << "it runs already";
}

TEST_F(LaunchdTest, ACrashedHelperStartsAgainTenSecondsAfterItsLastStart) {
  load(0);
  demand(100);
  EXPECT_EQ(crashed(103), Actions{});
  EXPECT_EQ(launchd.deadline(), at(110));
  EXPECT_EQ(launchd.untilNextEvent(), at(7));
  EXPECT_EQ(elapsed(109), Actions{});
  EXPECT_EQ(elapsed(110), start);
}

TEST_F(LaunchdTest, AHelperThatRanLongStartsAgainAtOnce) {
  load(0);
  demand(0);
  EXPECT_EQ(crashed(3600), start);
}

TEST_F(LaunchdTest, AnEndThatWasMeantIsLeftUntilADemand) {
  load(0);
  demand(0);
  EXPECT_EQ(ended(60), Actions{});
  EXPECT_EQ(launchd.deadline(), std::nullopt);
  EXPECT_EQ(demand(61), start);
}

TEST_F(LaunchdTest, WithoutKeepAliveItWaitsForADemand) {
  launchd.job.restartAfterCrash = false;
  load(0);
  demand(0);
  EXPECT_EQ(crashed(60), Actions{});
  EXPECT_EQ(launchd.deadline(), std::nullopt);
  EXPECT_EQ(demand(61), start);
}

TEST_F(LaunchdTest, ADemandDuringTheThrottleIsServedAtItsEnd) {
  load(0);
  demand(0);
  ended(1);
  EXPECT_EQ(demand(2), Actions{});
  EXPECT_EQ(demand(3), Actions{}) << "one start serves both";
  EXPECT_EQ(launchd.deadline(), at(10));
  EXPECT_EQ(elapsed(10), start);
}

TEST_F(LaunchdTest, AStartByHandWaitsForNothing) {
  EXPECT_EQ(on(1, [this] { launchd.startByHand(); }), start) << "no job is loaded";
  load(1);
  ended(2);
  EXPECT_EQ(on(3, [this] { launchd.startByHand(); }), start);
  EXPECT_EQ(on(4, [this] { launchd.startByHand(); }), Actions{}) << "it runs already";
}

TEST_F(LaunchdTest, UnloadingTerminatesAndKillsAfterTwentySeconds) {
  load(0);
  demand(0);
  EXPECT_EQ(unload(50), Actions{LaunchdAction::Terminate});
  EXPECT_EQ(launchd.deadline(), at(70));
  EXPECT_EQ(elapsed(70), Actions{LaunchdAction::Kill});
  EXPECT_EQ(crashed(70), Actions{}) << "unloaded jobs do not start again";
  EXPECT_EQ(demand(71), Actions{});
}

TEST_F(LaunchdTest, AHelperThatEndsInTimeIsNotKilled) {
  load(0);
  demand(0);
  unload(50);
  EXPECT_EQ(ended(51), Actions{});
  EXPECT_EQ(launchd.deadline(), std::nullopt);
}

TEST_F(LaunchdTest, LoadingWhileItStopsStartsAgainAfterTheEnd) {
  load(0);
  demand(0);
  unload(50);
  load(50);
  EXPECT_EQ(demand(52), Actions{});
  EXPECT_EQ(ended(53), start);
}

TEST_F(LaunchdTest, AMachineThatGoesDownForgetsWhatWas) {
  load(0);
  demand(0);
  on(1, [this] { launchd.forget(); });
  EXPECT_EQ(crashed(1), Actions{});
  EXPECT_FALSE(launchd.isRunning());
  load(2);
  EXPECT_EQ(demand(3), start) << "no throttle over a boot";
}

TEST_F(LaunchdTest, AnEndThatNobodyKnowsOfIsIgnored) {
  load(0);
  EXPECT_EQ(crashed(1), Actions{});
  EXPECT_EQ(elapsed(100), Actions{});
  EXPECT_EQ(unload(101), Actions{}) << "nothing runs";
}

}  // namespace
}  // namespace virtualmac
