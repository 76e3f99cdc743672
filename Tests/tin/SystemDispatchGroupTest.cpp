#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "SystemDispatch.h"
#include "TinMac/System/Books.h"

namespace tinmac::test {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::int64_t second = 1'000'000'000;

void* makeGroup() { return bound<void*()>("_dispatch_group_create")(); }
void enter(void* group) { bound<Function>("_dispatch_group_enter")(group); }
void leave(void* group) { bound<Function>("_dispatch_group_leave")(group); }
bool wait(void* group, std::uint64_t until) {
  return bound<std::int64_t(void*, std::uint64_t)>("_dispatch_group_wait")(group, until) == 0;
}

class SystemDispatchGroup : public testing::Test {
 public:
  ~SystemDispatchGroup() override { EXPECT_EQ(liveObjects("dispatch_group"), 0); }

 protected:
  TestHost host;
};
using SystemDispatchGroupDeathTest = SystemDispatchGroup;

TEST_F(SystemDispatchGroup, AWaitEndsWhenAllThatEnteredHasLeft) {
  void* const group = makeGroup();
  enter(group);
  enter(group);
  std::atomic<int> left = 0;
  std::thread other([&] {
    for (int time = 0; time < 2; ++time) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      ++left;
      leave(group);
    }
  });
  EXPECT_TRUE(wait(group, after(0, 3600 * second)));
  EXPECT_EQ(left, 2);
  other.join();
  EXPECT_EQ(host.alarmCount(), 0U);
  release(group);
}

TEST_F(SystemDispatchGroup, AWaitWithoutEndOutlastsTheClock) {
  void* const group = makeGroup();
  enter(group);
  std::thread other([&] {
    host.advance(1'000'000 * second);
    leave(group);
  });
  EXPECT_TRUE(wait(group, forever));
  other.join();
  release(group);
}

TEST_F(SystemDispatchGroup, AWaitEndsWhenTheMachinesClockReachesItsTime) {
  void* const group = makeGroup();
  enter(group);
  const Clock::time_point before = Clock::now();
  std::atomic<bool> reached = false;
  std::thread other([&] {
    eventually([&] { return host.alarmCount() == 1; });
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    reached = true;
    host.advance(2 * second);
  });
  EXPECT_FALSE(wait(group, after(0, 2 * second)));
  EXPECT_TRUE(reached);
  EXPECT_GE(Clock::now() - before, std::chrono::milliseconds(400));
  other.join();
  leave(group);
  release(group);
}

TEST_F(SystemDispatchGroup, AWaitLastsAQuarterOfARealSecondThoughTheClockRushes) {
  void* const group = makeGroup();
  enter(group);
  const Clock::time_point before = Clock::now();
  std::thread other([&] {
    eventually([&] { return host.alarmCount() == 1; });
    host.advance(100 * second);
  });
  EXPECT_FALSE(wait(group, after(0, second)));
  EXPECT_GE(Clock::now() - before, std::chrono::milliseconds(250));
  other.join();
  leave(group);
  release(group);
}

TEST_F(SystemDispatchGroup, AMomentThatIsPastIsNotWaitedFor) {
  void* const group = makeGroup();
  EXPECT_TRUE(wait(group, 0));
  enter(group);
  EXPECT_FALSE(wait(group, 0));
  EXPECT_FALSE(wait(group, after(0, -second)));
  leave(group);
  release(group);
}

TEST_F(SystemDispatchGroupDeathTest, LeavingWithoutHavingEnteredTraps) {
  EXPECT_DEATH(leave(makeGroup()), "tin-mac: dispatch_group_leave without dispatch_group_enter");
}

TEST_F(SystemDispatchGroupDeathTest, ReleasedWhileEnteredItTraps) {
  void* const group = makeGroup();
  enter(group);
  EXPECT_DEATH(release(group), "tin-mac: dispatch_release of a group that is entered");
  leave(group);
  release(group);
}

}  // namespace

}  // namespace tinmac::test
