#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Bench.h"

namespace virtualmac {
namespace {

using QueueTest = OnBench;

TEST_F(QueueTest, RunsWorkInTheOrderPosted) {
  const auto queue = dispatch.makeSerialQueue("q");
  queue->async([&] { note("a"); });
  queue->async([&] { note("b"); });
  EXPECT_EQ(notes, "");
  EXPECT_EQ(notesWhenIdle(), "a@0 b@0 ");
}

TEST_F(QueueTest, ReadyQueuesTakeTurns) {
  const auto one = dispatch.makeSerialQueue("one");
  const auto two = dispatch.makeSerialQueue("two");
  for (int i = 0; i < 2; ++i) {
    one->async([&] { note("one"); });
    two->async([&] { note("two"); });
  }
  EXPECT_EQ(notesWhenIdle(), "one@0 two@0 one@0 two@0 ");
}

TEST_F(QueueTest, APostDoesNotInterruptThePoster) {
  const auto one = dispatch.makeSerialQueue("one");
  const auto two = dispatch.makeSerialQueue("two");
  one->async([&] {
    two->async([&] { note("two"); });
    note("one");
  });
  EXPECT_EQ(notesWhenIdle(), "one@0 two@0 ");
}

TEST_F(QueueTest, OnePieceOfWorkAtATimeAlsoWhileItTakesTime) {
  const auto queue = dispatch.makeSerialQueue("q");
  const auto other = dispatch.makeSerialQueue("other");
  queue->async([&] {
    note("begin");
    busy(2);
    note("end");
  });
  queue->async([&] { note("next"); });
  other->async([&] {
    busy(1);
    note("other");
  });
  EXPECT_EQ(notesAfter(3), "begin@0 other@1000 end@2000 next@2000 ");
}

TEST_F(QueueTest, IsCurrentOnlyInsideItsOwnWork) {
  const auto queue = dispatch.makeSerialQueue("q");
  const auto other = dispatch.makeSerialQueue("other");
  bool inside = false;
  bool elsewhere = true;
  queue->async([&] {
    inside = queue->isCurrent();
    busy(1);
    inside = inside && queue->isCurrent();
  });
  other->async([&] { elsewhere = queue->isCurrent(); });
  EXPECT_FALSE(queue->isCurrent());
  runFor(1);
  EXPECT_TRUE(inside);
  EXPECT_FALSE(elsewhere);
}

TEST_F(QueueTest, PostedWorkRunsThoughItsQueueWasLetGo) {
  auto queue = dispatch.makeSerialQueue("q");
  queue->async([&] { note("first"); });
  queue->async([&] { note("second"); });
  queue = nullptr;
  EXPECT_EQ(notesWhenIdle(), "first@0 second@0 ");
}

TEST_F(QueueTest, WorkMayLetGoOfItsOwnQueue) {
  auto queue = dispatch.makeSerialQueue("q");
  queue->async([&] {
    queue = nullptr;
    busy(1);
    note("end");
  });
  EXPECT_EQ(notesAfter(2), "end@1000 ");
}

TEST_F(QueueTest, SyncWaitsForTheWorkAndWhatWasBeforeIt) {
  const auto queue = dispatch.makeSerialQueue("q");
  queue->async([&] {
    busy(2);
    note("before");
  });
  dispatch.postToMain([&] {
    queue->sync([&] { note("inside"); });
    note("after");
  });
  EXPECT_EQ(notesAfter(5), "before@2000 inside@2000 after@2000 ");
}

TEST_F(QueueTest, TheDrivingThreadMaySyncToo) {
  const auto queue = dispatch.makeSerialQueue("q");
  queue->sync([&] {
    busy(3);
    note("inside");
  });
  note("after");
  EXPECT_EQ(notes, "inside@3000 after@3000 ");
}

TEST_F(QueueTest, ASteadyQueueNeedsNoSwitches) {
  const auto queue = dispatch.makeSerialQueue("q");
  const auto timer = dispatch.makeTimer(queue);
  int ticks = 0;
  timer->setEventHandler([&] { ++ticks; });
  timer->schedule(0, 5.0, 0);
  timer->resume();
  runFor(1);
  const std::uint64_t before = scheduler.switches();
  runFor(5000);
  EXPECT_EQ(ticks, 1001);
  // Out to the worker and back to the driver.
  EXPECT_EQ(scheduler.switches() - before, 2U);
}

TEST_F(QueueTest, WorkThatOnlyPostsToOthersStaysOnOneThread) {
  const auto one = dispatch.makeSerialQueue("one");
  const auto two = dispatch.makeSerialQueue("two");
  int left = 100;
  std::function<void()> ping = [&] {
    if (--left > 0) (left % 2 == 0 ? one : two)->async([&] { ping(); });
  };
  scheduler.runUntilIdle();
  const std::uint64_t before = scheduler.switches();
  one->async([&] { ping(); });
  scheduler.runUntilIdle();
  EXPECT_EQ(left, 0);
  EXPECT_EQ(scheduler.switches() - before, 2U);
}

}  // namespace
}  // namespace virtualmac
