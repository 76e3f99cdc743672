#include "VirtualMac/Schedule/Alarm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "VirtualMac/Schedule/Random.h"

namespace virtualmac {
namespace {

TEST(AlarmClockTest, RingsInOrderOfTimeThenOfArming) {
  AlarmClock clock;
  std::string rung;
  Alarm late(clock, [&] { rung += "late "; });
  Alarm first(clock, [&] { rung += "first "; });
  Alarm second(clock, [&] { rung += "second "; });
  late.arm(20);
  first.arm(10);
  second.arm(10);
  EXPECT_EQ(clock.earliest(), 10);
  clock.ringDue(9);
  EXPECT_EQ(rung, "");
  clock.ringDue(20);
  EXPECT_EQ(rung, "first second late ");
  EXPECT_TRUE(clock.empty());
}

TEST(AlarmClockTest, ADisarmedOrDestroyedAlarmDoesNotRing) {
  AlarmClock clock;
  int rung = 0;
  Alarm disarmed(clock, [&] { ++rung; });
  disarmed.arm(1);
  {
    Alarm destroyed(clock, [&] { ++rung; });
    destroyed.arm(2);
    EXPECT_EQ(clock.size(), 2U);
  }
  disarmed.disarm();
  EXPECT_TRUE(clock.empty());
  clock.ringDue(100);
  EXPECT_EQ(rung, 0);
}

TEST(AlarmClockTest, AnAlarmArmedWhileRingingWaitsForTheNextRound) {
  AlarmClock clock;
  int rung = 0;
  Alarm again(clock, [&] {
    ++rung;
    again.arm(5);
  });
  again.arm(5);
  clock.ringDue(5);
  EXPECT_EQ(rung, 1);
  clock.ringDue(5);
  EXPECT_EQ(rung, 2);
}

TEST(AlarmClockTest, AnAlarmMayDisarmAnotherThatIsDue) {
  AlarmClock clock;
  int rung = 0;
  Alarm victim(clock, [&] { ++rung; });
  Alarm killer(clock, [&] { victim.disarm(); });
  killer.arm(1);
  victim.arm(1);
  clock.ringDue(1);
  EXPECT_EQ(rung, 0);
}

TEST(AlarmClockTest, AgreesWithASortedListUnderRandomArmingAndDisarming) {
  Random random(42);
  AlarmClock clock;
  std::vector<int> rung;
  std::vector<std::unique_ptr<Alarm>> alarms;
  for (int i = 0; i < 200; ++i) {
    alarms.push_back(std::make_unique<Alarm>(clock, [&rung, i] { rung.push_back(i); }));
  }
  struct Expected {
    Nanoseconds at;
    int order;
    int index;
  };
  std::vector<Expected> armed;
  for (int step = 0; step < 5000; ++step) {
    const auto index = static_cast<std::size_t>(random.below(alarms.size()));
    std::erase_if(armed, [&](const Expected& e) { return e.index == static_cast<int>(index); });
    if (random.chance(1, 3)) {
      alarms[index]->disarm();
    } else {
      const auto at = static_cast<Nanoseconds>(random.below(50));
      alarms[index]->arm(at);
      armed.push_back({at, step, static_cast<int>(index)});
    }
  }
  ASSERT_EQ(clock.size(), armed.size());
  std::sort(armed.begin(), armed.end(), [](const Expected& left, const Expected& right) {
    return std::pair(left.at, left.order) < std::pair(right.at, right.order);
  });
  clock.ringDue(50);
  ASSERT_EQ(rung.size(), armed.size());
  for (std::size_t i = 0; i < armed.size(); ++i) EXPECT_EQ(rung[i], armed[i].index) << i;
}

}  // namespace
}  // namespace virtualmac
