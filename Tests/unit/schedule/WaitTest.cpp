#include <gtest/gtest.h>

#include <memory>

#include "Bench.h"

namespace virtualmac {
namespace {

struct GroupTest : OnBench {
  std::shared_ptr<korvel::WorkQueue> queue = dispatch.makeSerialQueue("q");
  std::shared_ptr<korvel::DispatchGroup> group = dispatch.makeGroup();

  void waitOnMain(double timeout) {
    dispatch.postToMain([this, timeout] {
      const bool done = group->wait(timeout);
      note(done ? "done" : "timed out");
    });
  }
};

TEST_F(GroupTest, WaitReturnsAtOnceWhenNothingWasEntered) {
  waitOnMain(1);
  EXPECT_EQ(notesWhenIdle(), "done@0 ");
}

TEST_F(GroupTest, WaitEndsWithTheLastLeave) {
  group->enter();
  group->enter();
  queue->async([this] {
    group->leave();
    busy(0.25);
    group->leave();
  });
  waitOnMain(1);
  EXPECT_EQ(notesAfter(2), "done@250 ");
}

TEST_F(GroupTest, WaitTimesOutAndTheWorkGoesOn) {
  group->enter();
  queue->async([this] {
    busy(0.3);
    group->leave();
    note("left");
  });
  waitOnMain(0.1);
  EXPECT_EQ(notesAfter(2), "timed out@100 left@300 ");
}

TEST_F(GroupTest, AWaitStandsStillWhileTheMachineSleeps) {
  clock.sleepBetween(0.05, 100);
  group->enter();
  waitOnMain(0.1);
  EXPECT_EQ(notesAfter(99), "");
  EXPECT_EQ(notesAfter(2), "timed out@100 ");
  group->leave();
}

TEST_F(GroupTest, OutlivesItsWaiter) {
  group->enter();
  queue->async([this, kept = group] {
    busy(1);
    kept->leave();
    note("left");
  });
  dispatch.postToMain([this] {
    const std::shared_ptr<korvel::DispatchGroup> mine = std::move(group);
    note(mine->wait(0.5) ? "done" : "timed out");
  });
  EXPECT_EQ(notesAfter(2), "timed out@500 left@1000 ");
}

TEST_F(GroupTest, ObserversSeeHowLongAThreadWasBlocked) {
  struct Watcher final : ScheduleObserver {
    std::string seen;
    void waited(const Lane& lane, std::string_view what, double seconds) override {
      seen += lane.name() + ' ' + std::string(what) + ' ' + std::to_string(seconds) + ' ';
    }
  } watcher;
  observers.add(watcher);
  group->enter();
  waitOnMain(0.5);
  runFor(1);
  EXPECT_EQ(watcher.seen, "main group 0.500000 ");
  group->leave();
  observers.remove(watcher);
}

using GroupDeathTest = GroupTest;

TEST_F(GroupDeathTest, LeavingMoreOftenThanEnteringTraps) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(group->leave(), "left more often than entered");
}

using SleepTest = OnBench;

TEST_F(SleepTest, TimePassesForTheOneThatTakesIt) {
  const auto queue = dispatch.makeSerialQueue("q");
  queue->async([&] {
    busy(0.001);
    note("one");
    busy(0.002);
    note("two");
  });
  EXPECT_EQ(notesAfter(1), "one@1 two@3 ");
}

TEST_F(SleepTest, ThreadsFreezeWhileTheMachineSleeps) {
  clock.sleepBetween(1, 11);
  const auto queue = dispatch.makeSerialQueue("q");
  queue->async([&] {
    busy(2);
    note("end");
  });
  runFor(5);
  queue->async([&] { note("more"); });
  const auto idle = dispatch.makeSerialQueue("idle");
  idle->async([&] { note("idle"); });
  EXPECT_EQ(notesAfter(5.5), "");
  EXPECT_EQ(notesAfter(2), "idle@1000 end@2000 more@2000 ");
}

using RunUntilTest = OnBench;

TEST_F(RunUntilTest, StopsAtTheMomentAndSaysWhetherItCame) {
  const auto queue = dispatch.makeSerialQueue("q");
  const auto timer = dispatch.makeTimer(queue);
  int ticks = 0;
  timer->setEventHandler([&] { ++ticks; });
  timer->schedule(1, 1.0, 0);
  timer->resume();
  EXPECT_TRUE(scheduler.runUntil([&] { return ticks == 3; }, fromSeconds(10)));
  EXPECT_EQ(clock.total(), fromSeconds(3));
  EXPECT_FALSE(scheduler.runUntil([&] { return ticks == 100; }, fromSeconds(10)));
  EXPECT_EQ(clock.total(), fromSeconds(13));
  EXPECT_EQ(ticks, 13);
}

TEST_F(RunUntilTest, DoesNotRunWhenItHoldsAlready) {
  dispatch.makeSerialQueue("q")->async([&] { note("ran"); });
  EXPECT_TRUE(scheduler.runUntil([] { return true; }, fromSeconds(1)));
  EXPECT_EQ(notes, "");
}

}  // namespace
}  // namespace virtualmac
