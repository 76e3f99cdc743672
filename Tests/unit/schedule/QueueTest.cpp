#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Bench.h"

namespace virtualmac {
namespace {

TEST(QueueTest, RunsWorkInTheOrderPosted) {
  Bench bench;
  const auto queue = bench.dispatch.makeSerialQueue("q");
  queue->async([&] { bench.note("a"); });
  queue->async([&] { bench.note("b"); });
  EXPECT_EQ(bench.notes, "");
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "a@0 b@0 ");
}

TEST(QueueTest, ReadyQueuesTakeTurns) {
  Bench bench;
  const auto one = bench.dispatch.makeSerialQueue("one");
  const auto two = bench.dispatch.makeSerialQueue("two");
  for (int i = 0; i < 2; ++i) {
    one->async([&] { bench.note("one"); });
    two->async([&] { bench.note("two"); });
  }
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "one@0 two@0 one@0 two@0 ");
}

TEST(QueueTest, APostDoesNotInterruptThePoster) {
  Bench bench;
  const auto one = bench.dispatch.makeSerialQueue("one");
  const auto two = bench.dispatch.makeSerialQueue("two");
  one->async([&] {
    two->async([&] { bench.note("two"); });
    bench.note("one");
  });
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "one@0 two@0 ");
}

TEST(QueueTest, OnePieceOfWorkAtATimeAlsoWhileItTakesTime) {
  Bench bench;
  const auto queue = bench.dispatch.makeSerialQueue("q");
  const auto other = bench.dispatch.makeSerialQueue("other");
  queue->async([&] {
    bench.note("begin");
    bench.busy(2);
    bench.note("end");
  });
  queue->async([&] { bench.note("next"); });
  other->async([&] {
    bench.busy(1);
    bench.note("other");
  });
  bench.runFor(3);
  EXPECT_EQ(bench.notes, "begin@0 other@1000 end@2000 next@2000 ");
}

TEST(QueueTest, IsCurrentOnlyInsideItsOwnWork) {
  Bench bench;
  const auto queue = bench.dispatch.makeSerialQueue("q");
  const auto other = bench.dispatch.makeSerialQueue("other");
  bool inside = false;
  bool elsewhere = true;
  queue->async([&] {
    inside = queue->isCurrent();
    bench.busy(1);
    inside = inside && queue->isCurrent();
  });
  other->async([&] { elsewhere = queue->isCurrent(); });
  EXPECT_FALSE(queue->isCurrent());
  bench.runFor(1);
  EXPECT_TRUE(inside);
  EXPECT_FALSE(elsewhere);
}

TEST(QueueTest, PostedWorkRunsThoughItsQueueWasLetGo) {
  Bench bench;
  auto queue = bench.dispatch.makeSerialQueue("q");
  queue->async([&] { bench.note("first"); });
  queue->async([&] { bench.note("second"); });
  queue = nullptr;
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "first@0 second@0 ");
}

TEST(QueueTest, WorkMayLetGoOfItsOwnQueue) {
  Bench bench;
  auto queue = bench.dispatch.makeSerialQueue("q");
  queue->async([&] {
    queue = nullptr;
    bench.busy(1);
    bench.note("end");
  });
  bench.runFor(2);
  EXPECT_EQ(bench.notes, "end@1000 ");
}

TEST(QueueTest, SyncWaitsForTheWorkAndWhatWasBeforeIt) {
  Bench bench;
  const auto queue = bench.dispatch.makeSerialQueue("q");
  queue->async([&] {
    bench.busy(2);
    bench.note("before");
  });
  bench.dispatch.postToMain([&] {
    queue->sync([&] { bench.note("inside"); });
    bench.note("after");
  });
  bench.runFor(5);
  EXPECT_EQ(bench.notes, "before@2000 inside@2000 after@2000 ");
}

TEST(QueueTest, TheDrivingThreadMaySyncToo) {
  Bench bench;
  const auto queue = bench.dispatch.makeSerialQueue("q");
  queue->sync([&] {
    bench.busy(3);
    bench.note("inside");
  });
  bench.note("after");
  EXPECT_EQ(bench.notes, "inside@3000 after@3000 ");
}

TEST(QueueTest, ASteadyQueueNeedsNoSwitches) {
  Bench bench;
  const auto queue = bench.dispatch.makeSerialQueue("q");
  const auto timer = bench.dispatch.makeTimer(queue);
  int ticks = 0;
  timer->setEventHandler([&] { ++ticks; });
  timer->schedule(0, 5.0, 0);
  timer->resume();
  bench.runFor(1);
  const std::uint64_t before = bench.scheduler.switches();
  bench.runFor(5000);
  EXPECT_EQ(ticks, 1001);
  // Out to the worker and back to the driver.
  EXPECT_EQ(bench.scheduler.switches() - before, 2U);
}

TEST(QueueTest, WorkThatOnlyPostsToOthersStaysOnOneThread) {
  Bench bench;
  const auto one = bench.dispatch.makeSerialQueue("one");
  const auto two = bench.dispatch.makeSerialQueue("two");
  int left = 100;
  std::function<void()> ping = [&] {
    if (--left > 0) (left % 2 == 0 ? one : two)->async([&] { ping(); });
  };
  bench.scheduler.runUntilIdle();
  const std::uint64_t before = bench.scheduler.switches();
  one->async([&] { ping(); });
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(left, 0);
  EXPECT_EQ(bench.scheduler.switches() - before, 2U);
}

}  // namespace
}  // namespace virtualmac
