#include <gtest/gtest.h>

#include <memory>

#include "Bench.h"

namespace virtualmac {
namespace {

struct TimerTest : testing::Test {
  Bench bench;
  std::shared_ptr<korvel::WorkQueue> queue = bench.dispatch.makeSerialQueue("q");
  std::unique_ptr<korvel::TimerSource> timer = bench.dispatch.makeTimer(queue);

  void start(double delay, std::optional<double> interval) {
    timer->setEventHandler([this] { bench.note("tick"); });
    timer->schedule(delay, interval, 0);
    timer->resume();
  }
};

TEST_F(TimerTest, FiresAtOnceAndThenEveryInterval) {
  start(0, 5.0);
  bench.runFor(12);
  EXPECT_EQ(bench.notes, "tick@0 tick@5000 tick@10000 ");
}

TEST_F(TimerTest, RunForIncludesItsLastMoment) {
  start(5, 5.0);
  bench.runFor(10);
  EXPECT_EQ(bench.notes, "tick@5000 tick@10000 ");
}

TEST_F(TimerTest, FiresOnceWithoutAnInterval) {
  start(30, std::nullopt);
  bench.runFor(29.999);
  EXPECT_EQ(bench.notes, "");
  bench.runFor(100);
  EXPECT_EQ(bench.notes, "tick@30000 ");
}

TEST_F(TimerTest, DoesNothingBeforeItIsResumed) {
  timer->setEventHandler([this] { bench.note("tick"); });
  timer->schedule(1, std::nullopt, 0);
  bench.runFor(5);
  EXPECT_EQ(bench.notes, "");
  timer->resume();
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "tick@5000 ");
}

TEST_F(TimerTest, DelayCountsFromSchedulingNotFromResuming) {
  timer->setEventHandler([this] { bench.note("tick"); });
  timer->schedule(10, std::nullopt, 0);
  bench.runFor(4);
  timer->resume();
  bench.runFor(10);
  EXPECT_EQ(bench.notes, "tick@10000 ");
}

TEST_F(TimerTest, ResumedLateItFiresOnceForAllThatItMissed) {
  timer->setEventHandler([this] { bench.note("tick"); });
  timer->schedule(0, 5.0, 0);
  bench.runFor(23);
  timer->resume();
  bench.runFor(8);
  EXPECT_EQ(bench.notes, "tick@23000 tick@25000 tick@30000 ");
}

TEST_F(TimerTest, StandsStillWhileTheMachineSleeps) {
  bench.clock.sleepBetween(7, 1007);
  start(5, 5.0);
  bench.runFor(1013);
  EXPECT_EQ(bench.notes, "tick@5000 tick@10000 ");
  EXPECT_EQ(bench.clock.total(), fromSeconds(1013));
  EXPECT_EQ(bench.clock.uptime(), fromSeconds(13));
}

TEST_F(TimerTest, MissedTicksComeAsOne) {
  queue->async([this] { bench.busy(23); });
  start(0, 5.0);
  bench.runFor(26);
  EXPECT_EQ(bench.notes, "tick@23000 tick@25000 ");
}

TEST_F(TimerTest, CancelledFromItsQueueItNeverFiresAgainAQueuedFiringIncluded) {
  queue->async([this] {
    bench.busy(6);  // The first two firings come due meanwhile and wait in the queue.
    timer->cancel();
  });
  start(0, 5.0);
  bench.runFor(60);
  EXPECT_EQ(bench.notes, "");
}

TEST_F(TimerTest, DestroyedItNeverFiresAgain) {
  queue->async([this] {
    bench.busy(6);
    timer = nullptr;
  });
  start(0, 5.0);
  bench.runFor(60);
  EXPECT_EQ(bench.notes, "");
  EXPECT_TRUE(bench.scheduler.alarms().empty());
}

TEST_F(TimerTest, ItsHandlerMayDestroyIt) {
  const auto captured = std::make_shared<int>(7);
  timer->setEventHandler([this, captured] {
    timer = nullptr;
    bench.note("still " + std::to_string(*captured));
  });
  timer->schedule(1, 1.0, 0);
  timer->resume();
  bench.runFor(10);
  EXPECT_EQ(bench.notes, "still 7@1000 ");
  EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(TimerTest, ItsHandlerMayReplaceIt) {
  int left = 3;
  std::function<void()> tick = [&] {
    bench.note("tick");
    if (--left == 0) return;
    timer = bench.dispatch.makeTimer(queue);
    timer->setEventHandler([&] { tick(); });
    timer->schedule(2, std::nullopt, 0);
    timer->resume();
  };
  timer->setEventHandler([&] { tick(); });
  timer->schedule(0, std::nullopt, 0);
  timer->resume();
  bench.runFor(10);
  EXPECT_EQ(bench.notes, "tick@0 tick@2000 tick@4000 ");
}

TEST_F(TimerTest, RescheduledItForgetsTheOldTime) {
  start(5, std::nullopt);
  bench.runFor(1);
  timer->schedule(10, std::nullopt, 0);
  bench.runFor(20);
  EXPECT_EQ(bench.notes, "tick@11000 ");
}

TEST_F(TimerTest, WorkPostedBeforeAFiringRunsBeforeIt) {
  queue->async([this] {
    start(0, 5.0);
    queue->async([this] { bench.note("work"); });
  });
  bench.runFor(0);
  EXPECT_EQ(bench.notes, "work@0 tick@0 ");
}

TEST_F(TimerTest, ADayOfTicksIsExact) {
  int ticks = 0;
  timer->setEventHandler([&] { ++ticks; });
  timer->schedule(0, 5.0, 0);
  timer->resume();
  bench.runFor(86400);
  EXPECT_EQ(ticks, 17281);
  EXPECT_EQ(bench.clock.total(), fromSeconds(86400));
}

TEST_F(TimerTest, ObserversSeeStartFiringsAndCancel) {
  struct Watcher final : ScheduleObserver {
    std::string seen;
    void timerStarted(const TimerFacts& timer) override {
      seen += "start " + std::to_string(timer.id) + ' ' + std::to_string(timer.delaySeconds) + '/' +
              std::to_string(timer.intervalSeconds.value_or(-1)) + ' ';
    }
    void timerFires(const TimerFacts&) override { seen += "fire "; }
    void timerCancelled(const TimerFacts&) override { seen += "cancel "; }
  } watcher;
  bench.observers.add(watcher);
  start(0, 5.0);
  bench.runFor(5);
  timer->cancel();
  timer->cancel();
  EXPECT_EQ(watcher.seen, "start 1 0.000000/5.000000 fire fire cancel ");
  bench.observers.remove(watcher);
}

}  // namespace
}  // namespace virtualmac
