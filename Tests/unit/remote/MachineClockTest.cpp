#include "VirtualMac/Remote/MachineClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>

#include "VirtualMac/Remote/EventThread.h"

namespace virtualmac {
namespace {

constexpr std::int64_t second = nanosecondsPerSecond;

}  // namespace

TEST(MachineTimeTest, TheUptimeFollowsTheSpeed) {
  const MachineTime time{.steadyNanoseconds = 100 * second, .uptime = 7 * second, .speed = 60};
  EXPECT_EQ(uptimeAt(time, 100 * second), 7 * second);
  EXPECT_EQ(uptimeAt(time, 101 * second), 67 * second);
  EXPECT_EQ(uptimeAt(time, 99 * second), 7 * second) << "what was before is not known";
}

TEST(MachineTimeTest, AFrozenUptimeStandsStill) {
  const MachineTime time{
      .steadyNanoseconds = 100 * second, .uptime = 7 * second, .speed = 60, .frozen = true};
  EXPECT_EQ(uptimeAt(time, 500 * second), 7 * second);
}

// A wait must never end early: the real duration covers at least the virtual one.
TEST(MachineTimeTest, ARealDurationIsLongEnough) {
  for (const double speed : {0.01, 0.3, 1.0, 7.0, 600.0, 10000.0}) {
    const MachineTime time{.speed = speed};
    for (const Nanoseconds wanted : {Nanoseconds{1}, Nanoseconds{999}, 5 * second})
      EXPECT_GE(uptimeAt(time, realDuration(time, wanted).count()), wanted) << speed;
  }
}

// An alarm rings once the time is set past it, and not while the machine sleeps.
TEST(MachineClockTest, AlarmsFollowTheMachinesTime) {
  EventThread events;
  MachineClock clock(MachineTime{.frozen = true}, events);
  std::promise<void> rang;
  std::atomic<bool> did = false;
  clock.addAlarm(3600 * second, [&] {
    did = true;
    rang.set_value();
  });
  EXPECT_EQ(clock.uptime(), 0);
  clock.setTime({.steadyNanoseconds = 1, .uptime = 4000 * second, .frozen = true});
  EXPECT_FALSE(did) << "asleep";
  clock.setTime({.steadyNanoseconds = steadyNow(), .uptime = 4000 * second});
  rang.get_future().wait();
  EXPECT_TRUE(did);
}

TEST(MachineClockTest, ARemovedAlarmNeverRings) {
  EventThread events;
  MachineClock clock(MachineTime{.frozen = true}, events);
  bool wrong = false;
  std::promise<void> rang;
  const auto removed = clock.addAlarm(second, [&] { wrong = true; });
  clock.addAlarm(2 * second, [&] { rang.set_value(); });
  clock.removeAlarm(removed);
  clock.setTime({.steadyNanoseconds = steadyNow(), .uptime = 10 * second});
  rang.get_future().wait();
  EXPECT_FALSE(wrong);
}

// Nothing else looks at the alarms afterwards: the first came from outside, the others do not.
TEST(MachineClockTest, AlarmsThatAHandlerSetsRingWhetherDueOrNot) {
  EventThread events;
  MachineClock clock(MachineTime{.frozen = true}, events);
  std::promise<void> rang;
  clock.addAlarm(second, [&] {
    clock.addAlarm(2 * second, [&] {
      clock.addAlarm(clock.uptime() + second / 100, [&] { rang.set_value(); });
    });
  });
  clock.setTime({.steadyNanoseconds = steadyNow(), .uptime = 10 * second});
  EXPECT_EQ(rang.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

// Two messages about the time may overtake each other on their way through the helper.
TEST(MachineClockTest, OldNewsAboutTheTimeIsIgnored) {
  EventThread events;
  MachineClock clock(MachineTime{.frozen = true}, events);
  clock.setTime({.steadyNanoseconds = 2000, .uptime = 9 * second, .frozen = true});
  clock.setTime({.steadyNanoseconds = 1000, .uptime = 1 * second});
  EXPECT_EQ(clock.time().uptime, 9 * second);
  EXPECT_TRUE(clock.time().frozen);
}

}  // namespace virtualmac
