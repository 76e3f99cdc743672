#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Bench.h"

namespace virtualmac {
namespace {

using testing::HasSubstr;

struct StuckTest : OnQueues {
  // The bound on work without time is small, so that such work is found at once.
  StuckTest() : OnQueues(Scheduler::Order::Fifo, 1, 10'000) {}

  std::string report(double seconds = 1) {
    try {
      runFor(seconds);
    } catch (const StuckError& error) {
      return error.what();
    }
    return "not stuck";
  }
};

TEST_F(StuckTest, TwoLocksTakenInOppositeOrderAreReportedWithTheirHolders) {
  one->async([this] {
    lock->lock();
    busy(0.1);
    other->lock();
  });
  two->async([this] {
    other->lock();
    busy(0.2);
    lock->lock();
  });
  EXPECT_EQ(report(), "two waits for lock 1 held by one; one waits for lock 2 held by two");
}

TEST_F(StuckTest, IsFoundThoughATimerWouldGoOnForEver) {
  const auto timer = dispatch.makeTimer(two);
  timer->schedule(0, 5.0, 0);
  timer->resume();
  one->async([this] { one->sync([] {}); });
  EXPECT_EQ(report(60), "one waits for sync one held by one");
}

TEST_F(StuckTest, TakingALockTwice) {
  one->async([this] {
    lock->lock();
    lock->lock();
  });
  EXPECT_EQ(report(), "one waits for lock 1 held by one");
}

TEST_F(StuckTest, ASyncIntoAQueueThatWaitsForTheCallersLock) {
  one->async([this] {
    lock->lock();
    two->sync([] {});
  });
  two->async([this] { lock->lock(); });
  EXPECT_EQ(report(), "two waits for lock 1 held by one; one waits for sync two held by two");
}

TEST_F(StuckTest, ALockThatChangedHandsSinceOneWaitsForIt) {
  one->async([this] {
    lock->lock();
    busy(0.2);
    lock->unlock();
  });
  two->async([this] {
    lock->lock();
    other->lock();
  });
  three->async([this] {
    other->lock();
    lock->lock();
  });
  EXPECT_EQ(report(), "two waits for lock 2 held by three; three waits for lock 1 held by two");
}

TEST_F(StuckTest, AWaitThatNobodyCanEndIsReportedWhenNothingElseIsLeft) {
  one->async([this] {
    lock->lock();
    scheduler.block(Wait{.what = "a message", .process = &process});
  });
  two->async([this] { lock->lock(); });
  const std::string text = report();
  EXPECT_THAT(text, HasSubstr("nothing can run"));
  EXPECT_THAT(text, HasSubstr("one waits for a message"));
  EXPECT_THAT(text, HasSubstr("two waits for lock 1 held by one"));
}

TEST_F(StuckTest, TheDrivingThreadsOwnWaitThrows) {
  lock->lock();
  EXPECT_THROW(lock->lock(), StuckError);
  lock->unlock();
  // The bench is usable afterwards.
  one->async([this] { note("one"); });
  EXPECT_EQ(report(), "not stuck");
  EXPECT_EQ(notes, "one@0 ");
}

TEST_F(StuckTest, AnIdleMainLoopIsNotStuck) { EXPECT_EQ(report(), "not stuck"); }

TEST_F(StuckTest, WaitingWithATimeoutIsNotStuck) {
  const auto group = dispatch.makeGroup();
  group->enter();
  one->async([&] { group->wait(0.5); });
  EXPECT_EQ(report(), "not stuck");
  group->leave();
}

TEST_F(StuckTest, WaitingForWorkThatTheSleepHoldsUpIsNotStuck) {
  one->async([this] {
    busy(0.5);
    note("done");
  });
  two->async([this] { one->sync([] {}); });
  runFor(0.1);
  clock.setAsleep(true);
  EXPECT_EQ(report(), "not stuck");
  EXPECT_EQ(notes, "");
  clock.setAsleep(false);
  EXPECT_EQ(report(), "not stuck");
  EXPECT_EQ(notes, "done@500 ");
}

TEST_F(StuckTest, WorkThatGoesOnWithoutTimeIsReported) {
  std::function<void()> again = [&] { one->async([&] { again(); }); };
  one->async([&] { again(); });
  EXPECT_EQ(report(), "work goes on without time passing: one");
  EXPECT_EQ(Scheduler::usualRoundsAtOneMoment, 2'000'000U);
}

}  // namespace
}  // namespace virtualmac
