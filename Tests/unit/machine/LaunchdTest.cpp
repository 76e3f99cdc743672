#include "VirtualMac/Machine/Launchd.h"

#include <gtest/gtest.h>

namespace virtualmac {
namespace {

using Actions = std::vector<LaunchdAction>;
const Actions start{LaunchdAction::Start};

Nanoseconds at(double seconds) { return fromSeconds(seconds); }

TEST(LaunchdTest, TheFirstDemandStartsTheHelper) {
  Launchd launchd;
  EXPECT_EQ(launchd.demand(at(0)), Actions{}) << "not loaded";
  launchd.load();
  EXPECT_EQ(launchd.demand(at(2)), start);
  EXPECT_EQ(launchd.demand(at(3)), Actions{}) << "it runs already";
  EXPECT_TRUE(launchd.isRunning());
}

TEST(LaunchdTest, ACrashedHelperStartsAgainTenSecondsAfterItsLastStart) {
  Launchd launchd;
  launchd.load();
  launchd.demand(at(100));
  EXPECT_EQ(launchd.exited(at(103)), Actions{});
  EXPECT_EQ(launchd.deadline(), at(110));
  EXPECT_EQ(launchd.elapsed(at(109)), Actions{});
  EXPECT_EQ(launchd.elapsed(at(110)), start);
  EXPECT_EQ(launchd.starts(), 2U);
}

TEST(LaunchdTest, AHelperThatRanLongStartsAgainAtOnce) {
  Launchd launchd;
  launchd.load();
  launchd.demand(at(0));
  EXPECT_EQ(launchd.exited(at(3600)), start);
}

TEST(LaunchdTest, WithoutKeepAliveItWaitsForADemand) {
  Launchd launchd{LaunchdJob{.keepAlive = false}};
  launchd.load();
  launchd.demand(at(0));
  EXPECT_EQ(launchd.exited(at(60)), Actions{});
  EXPECT_EQ(launchd.deadline(), std::nullopt);
  EXPECT_EQ(launchd.demand(at(61)), start);
}

TEST(LaunchdTest, ADemandDuringTheThrottleIsServedAtItsEnd) {
  Launchd launchd{LaunchdJob{.keepAlive = false}};
  launchd.load();
  launchd.demand(at(0));
  launchd.exited(at(1));
  EXPECT_EQ(launchd.demand(at(2)), Actions{});
  EXPECT_EQ(launchd.demand(at(3)), Actions{}) << "one start serves both";
  EXPECT_EQ(launchd.deadline(), at(10));
  EXPECT_EQ(launchd.elapsed(at(10)), start);
}

TEST(LaunchdTest, UnloadingTerminatesAndKillsAfterTwentySeconds) {
  Launchd launchd;
  launchd.load();
  launchd.demand(at(0));
  EXPECT_EQ(launchd.unload(at(50)), Actions{LaunchdAction::Terminate});
  EXPECT_EQ(launchd.deadline(), at(70));
  EXPECT_EQ(launchd.elapsed(at(70)), Actions{LaunchdAction::Kill});
  EXPECT_EQ(launchd.exited(at(70)), Actions{}) << "unloaded jobs do not start again";
  EXPECT_EQ(launchd.demand(at(71)), Actions{});
}

TEST(LaunchdTest, AHelperThatEndsInTimeIsNotKilled) {
  Launchd launchd;
  launchd.load();
  launchd.demand(at(0));
  launchd.unload(at(50));
  EXPECT_EQ(launchd.exited(at(51)), Actions{});
  EXPECT_EQ(launchd.deadline(), std::nullopt);
}

TEST(LaunchdTest, LoadingWhileItStopsStartsAgainAfterTheEnd) {
  Launchd launchd;
  launchd.load();
  launchd.demand(at(0));
  launchd.unload(at(50));
  launchd.load();
  EXPECT_EQ(launchd.demand(at(52)), Actions{});
  EXPECT_EQ(launchd.exited(at(53)), start);
}

TEST(LaunchdTest, AnEndThatNobodyKnowsOfIsIgnored) {
  Launchd launchd;
  launchd.load();
  EXPECT_EQ(launchd.exited(at(1)), Actions{});
  EXPECT_EQ(launchd.elapsed(at(100)), Actions{});
  EXPECT_EQ(launchd.unload(at(101)), Actions{}) << "nothing runs";
}

}  // namespace
}  // namespace virtualmac
