#include <gtest/gtest.h>

#include <memory>

#include "Bench.h"

namespace virtualmac {
namespace {

struct TimerTest : OnBench {
  std::shared_ptr<korvel::WorkQueue> queue = dispatch.makeSerialQueue("q");
  std::unique_ptr<korvel::TimerSource> timer = dispatch.makeTimer(queue);

  void start(double delay, std::optional<double> interval) {
    timer->setEventHandler([this] { note("tick"); });
    timer->schedule(delay, interval, 0);
    timer->resume();
  }
};

TEST_F(TimerTest, FiresAtOnceAndThenEveryInterval) {
  start(0, 5.0);
  EXPECT_EQ(notesAfter(12), "tick@0 tick@5000 tick@10000 ");
}

TEST_F(TimerTest, RunForIncludesItsLastMoment) {
  start(5, 5.0);
  EXPECT_EQ(notesAfter(10), "tick@5000 tick@10000 ");
}

TEST_F(TimerTest, FiresOnceWithoutAnInterval) {
  start(30, std::nullopt);
  EXPECT_EQ(notesAfter(29.999), "");
  EXPECT_EQ(notesAfter(100), "tick@30000 ");
}

TEST_F(TimerTest, DoesNothingBeforeItIsResumed) {
  timer->setEventHandler([this] { note("tick"); });
  timer->schedule(1, std::nullopt, 0);
  EXPECT_EQ(notesAfter(5), "");
  timer->resume();
  EXPECT_EQ(notesWhenIdle(), "tick@5000 ");
}

TEST_F(TimerTest, DelayCountsFromSchedulingNotFromResuming) {
  timer->setEventHandler([this] { note("tick"); });
  timer->schedule(10, std::nullopt, 0);
  runFor(4);
  timer->resume();
  EXPECT_EQ(notesAfter(10), "tick@10000 ");
}

TEST_F(TimerTest, ResumedLateItFiresOnceForAllThatItMissed) {
  timer->setEventHandler([this] { note("tick"); });
  timer->schedule(0, 5.0, 0);
  runFor(23);
  timer->resume();
  EXPECT_EQ(notesAfter(8), "tick@23000 tick@25000 tick@30000 ");
}

TEST_F(TimerTest, StandsStillWhileTheMachineSleeps) {
  clock.sleepBetween(7, 1007);
  start(5, 5.0);
  EXPECT_EQ(notesAfter(1013), "tick@5000 tick@10000 ");
  EXPECT_EQ(clock.total(), fromSeconds(1013));
  EXPECT_EQ(clock.uptime(), fromSeconds(13));
}

TEST_F(TimerTest, MissedTicksComeAsOne) {
  queue->async([this] { busy(23); });
  start(0, 5.0);
  EXPECT_EQ(notesAfter(26), "tick@23000 tick@25000 ");
}

TEST_F(TimerTest, CancelledFromItsQueueItNeverFiresAgainAQueuedFiringIncluded) {
  queue->async([this] {
    busy(6);  // The first two firings come due meanwhile and wait in the queue.
    timer->cancel();
  });
  start(0, 5.0);
  EXPECT_EQ(notesAfter(60), "");
}

TEST_F(TimerTest, DestroyedItNeverFiresAgain) {
  queue->async([this] {
    busy(6);
    timer = nullptr;
  });
  start(0, 5.0);
  EXPECT_EQ(notesAfter(60), "");
  EXPECT_TRUE(scheduler.alarms().empty());
}

TEST_F(TimerTest, ItsHandlerMayDestroyIt) {
  const auto captured = std::make_shared<int>(7);
  timer->setEventHandler([this, captured] {
    timer = nullptr;
    note("still " + std::to_string(*captured));
  });
  timer->schedule(1, 1.0, 0);
  timer->resume();
  EXPECT_EQ(notesAfter(10), "still 7@1000 ");
  EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(TimerTest, ItsHandlerMayReplaceIt) {
  int left = 3;
  std::function<void()> tick = [&] {
    note("tick");
    if (--left == 0) return;
    timer = dispatch.makeTimer(queue);
    timer->setEventHandler([&] { tick(); });
    timer->schedule(2, std::nullopt, 0);
    timer->resume();
  };
  timer->setEventHandler([&] { tick(); });
  timer->schedule(0, std::nullopt, 0);
  timer->resume();
  EXPECT_EQ(notesAfter(10), "tick@0 tick@2000 tick@4000 ");
}

TEST_F(TimerTest, RescheduledItForgetsTheOldTime) {
  start(5, std::nullopt);
  runFor(1);
  timer->schedule(10, std::nullopt, 0);
  EXPECT_EQ(notesAfter(20), "tick@11000 ");
}

TEST_F(TimerTest, WorkPostedBeforeAFiringRunsBeforeIt) {
  queue->async([this] {
    start(0, 5.0);
    queue->async([this] { note("work"); });
  });
  EXPECT_EQ(notesAfter(0), "work@0 tick@0 ");
}

TEST_F(TimerTest, ADayOfTicksIsExact) {
  int ticks = 0;
  timer->setEventHandler([&] { ++ticks; });
  timer->schedule(0, 5.0, 0);
  timer->resume();
  runFor(86400);
  EXPECT_EQ(ticks, 17281);
  EXPECT_EQ(clock.total(), fromSeconds(86400));
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
  observers.add(watcher);
  start(0, 5.0);
  runFor(5);
  timer->cancel();
  timer->cancel();
  EXPECT_EQ(watcher.seen, "start 1 0.000000/5.000000 fire fire cancel ");
  observers.remove(watcher);
}

}  // namespace
}  // namespace virtualmac
