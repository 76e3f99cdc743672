#include <gtest/gtest.h>

#include <memory>

#include "Bench.h"

namespace virtualmac {
namespace {

struct GroupTest : testing::Test {
  Bench bench;
  // The threads must unwind before the objects that they wait for are destroyed.
  void TearDown() override { bench.scheduler.killAndUnwind(bench.process); }

  std::shared_ptr<korvel::WorkQueue> queue = bench.dispatch.makeSerialQueue("q");
  std::shared_ptr<korvel::DispatchGroup> group = bench.dispatch.makeGroup();

  void waitOnMain(double timeout) {
    bench.dispatch.postToMain([this, timeout] {
      const bool done = group->wait(timeout);
      bench.note(done ? "done" : "timed out");
    });
  }
};

TEST_F(GroupTest, WaitReturnsAtOnceWhenNothingWasEntered) {
  waitOnMain(1);
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "done@0 ");
}

TEST_F(GroupTest, WaitEndsWithTheLastLeave) {
  group->enter();
  group->enter();
  queue->async([this] {
    group->leave();
    bench.busy(0.25);
    group->leave();
  });
  waitOnMain(1);
  bench.runFor(2);
  EXPECT_EQ(bench.notes, "done@250 ");
}

TEST_F(GroupTest, WaitTimesOutAndTheWorkGoesOn) {
  group->enter();
  queue->async([this] {
    bench.busy(0.3);
    group->leave();
    bench.note("left");
  });
  waitOnMain(0.1);
  bench.runFor(2);
  EXPECT_EQ(bench.notes, "timed out@100 left@300 ");
}

TEST_F(GroupTest, AWaitStandsStillWhileTheMachineSleeps) {
  bench.clock.sleepBetween(0.05, 100);
  group->enter();
  waitOnMain(0.1);
  bench.runFor(99);
  EXPECT_EQ(bench.notes, "");
  bench.runFor(2);
  EXPECT_EQ(bench.notes, "timed out@100 ");
  group->leave();
}

TEST_F(GroupTest, OutlivesItsWaiter) {
  group->enter();
  queue->async([this, kept = group] {
    bench.busy(1);
    kept->leave();
    bench.note("left");
  });
  bench.dispatch.postToMain([this] {
    const std::shared_ptr<korvel::DispatchGroup> mine = std::move(group);
    bench.note(mine->wait(0.5) ? "done" : "timed out");
  });
  bench.runFor(2);
  EXPECT_EQ(bench.notes, "timed out@500 left@1000 ");
}

TEST_F(GroupTest, ObserversSeeHowLongAThreadWasBlocked) {
  struct Watcher final : ScheduleObserver {
    std::string seen;
    void waited(const Lane& lane, std::string_view what, double seconds) override {
      seen += lane.name() + ' ' + std::string(what) + ' ' + std::to_string(seconds) + ' ';
    }
  } watcher;
  bench.observers.add(watcher);
  group->enter();
  waitOnMain(0.5);
  bench.runFor(1);
  EXPECT_EQ(watcher.seen, "main group 0.500000 ");
  group->leave();
  bench.observers.remove(watcher);
}

using GroupDeathTest = GroupTest;

TEST_F(GroupDeathTest, LeavingMoreOftenThanEnteringTraps) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(group->leave(), "left more often than entered");
}

TEST(SleepTest, TimePassesForTheOneThatTakesIt) {
  Bench bench;
  const auto queue = bench.dispatch.makeSerialQueue("q");
  queue->async([&] {
    bench.busy(0.001);
    bench.note("one");
    bench.busy(0.002);
    bench.note("two");
  });
  bench.runFor(1);
  EXPECT_EQ(bench.notes, "one@1 two@3 ");
}

TEST(SleepTest, ThreadsFreezeWhileTheMachineSleeps) {
  Bench bench;
  bench.clock.sleepBetween(1, 11);
  const auto queue = bench.dispatch.makeSerialQueue("q");
  queue->async([&] {
    bench.busy(2);
    bench.note("end");
  });
  bench.runFor(5);
  queue->async([&] { bench.note("more"); });
  const auto idle = bench.dispatch.makeSerialQueue("idle");
  idle->async([&] { bench.note("idle"); });
  bench.runFor(5.5);
  EXPECT_EQ(bench.notes, "");
  bench.runFor(2);
  EXPECT_EQ(bench.notes, "idle@1000 end@2000 more@2000 ");
}

TEST(RunUntilTest, StopsAtTheMomentAndSaysWhetherItCame) {
  Bench bench;
  const auto queue = bench.dispatch.makeSerialQueue("q");
  const auto timer = bench.dispatch.makeTimer(queue);
  int ticks = 0;
  timer->setEventHandler([&] { ++ticks; });
  timer->schedule(1, 1.0, 0);
  timer->resume();
  EXPECT_TRUE(bench.scheduler.runUntil([&] { return ticks == 3; }, fromSeconds(10)));
  EXPECT_EQ(bench.clock.total(), fromSeconds(3));
  EXPECT_FALSE(bench.scheduler.runUntil([&] { return ticks == 100; }, fromSeconds(10)));
  EXPECT_EQ(bench.clock.total(), fromSeconds(13));
  EXPECT_EQ(ticks, 13);
}

TEST(RunUntilTest, DoesNotRunWhenItHoldsAlready) {
  Bench bench;
  bench.dispatch.makeSerialQueue("q")->async([&] { bench.note("ran"); });
  EXPECT_TRUE(bench.scheduler.runUntil([] { return true; }, fromSeconds(1)));
  EXPECT_EQ(bench.notes, "");
}

}  // namespace
}  // namespace virtualmac
