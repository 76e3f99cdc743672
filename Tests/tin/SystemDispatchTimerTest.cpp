#include <gtest/gtest.h>

#include <atomic>

#include "SystemDispatch.h"
#include "TinMac/System/Books.h"

namespace tinmac::test {

namespace {

constexpr std::int64_t second = 1'000'000'000;

struct Record {
  std::atomic<int> heard = 0;
  std::atomic<int> finalized = 0;
  void* source = nullptr;
};

void hear(void* context) { ++static_cast<Record*>(context)->heard; }
void finalize(void* context) { ++static_cast<Record*>(context)->finalized; }

class SystemDispatchTimer : public testing::Test {
 public:
  ~SystemDispatchTimer() override {
    release(queue);
    EXPECT_TRUE(eventually(
        [] { return liveObjects("dispatch_queue") == 0 && liveObjects("dispatch_source") == 0; }));
  }

 protected:
  SystemDispatchTimer() : queue(makeQueue()) {}

  void* timer(Record& record, Function* handler = hear) {
    void* const source = makeTimer(queue);
    record.source = source;
    setContext(source, &record);
    setFinalizer(source, finalize);
    setHandler(source, handler);
    return source;
  }
  /// Moves the clock and waits until the queue has heard of it.
  void pass(std::int64_t nanoseconds) {
    host.advance(nanoseconds);
    settle(queue);
  }
  void drop(void* source) {
    cancel(source);
    release(source);
  }

  TestHost host;
  void* queue;
};
using SystemDispatchTimerDeathTest = SystemDispatchTimer;

TEST_F(SystemDispatchTimer, FiresOnTheMachinesClockAtItsStartAndThenEveryInterval) {
  Record record;
  void* const source = timer(record);
  setTimer(source, after(0, 3 * second), 2 * second);
  activate(source);
  pass(3 * second - 1);
  EXPECT_EQ(record.heard, 0);
  pass(1);
  EXPECT_EQ(record.heard, 1);
  pass(2 * second - 1);
  EXPECT_EQ(record.heard, 1);
  pass(1);
  EXPECT_EQ(record.heard, 2);
  EXPECT_EQ(host.alarmCount(), 1U);
  drop(source);
  EXPECT_EQ(host.alarmCount(), 0U);
}

TEST_F(SystemDispatchTimer, WithoutAnIntervalItFiresOnce) {
  Record record;
  void* const source = timer(record);
  setTimer(source, after(0, second), forever);
  activate(source);
  pass(second);
  pass(100 * second);
  EXPECT_EQ(record.heard, 1);
  EXPECT_EQ(host.alarmCount(), 0U);
  drop(source);
}

TEST_F(SystemDispatchTimer, MissedFiringsComeAsOneAndTheBeatIsKept) {
  Record record;
  void* const source = timer(record);
  setTimer(source, after(0, second), second);
  activate(source);
  pass(10 * second + second / 2);
  EXPECT_EQ(record.heard, 1);
  pass(second / 2);
  EXPECT_EQ(record.heard, 2);
  drop(source);
}

TEST_F(SystemDispatchTimer, FiringsThatWaitForABusyQueueComeAsOne) {
  Record record;
  void* const source = timer(record);
  setTimer(source, after(0, second), second);
  activate(source);
  std::atomic<bool> open = false;
  async(queue, &open, [](void* context) {
    eventually([&] { return static_cast<std::atomic<bool>*>(context)->load(); });
  });
  host.advance(second);
  host.advance(second);
  host.advance(second);
  open = true;
  settle(queue);
  EXPECT_EQ(record.heard, 1);
  drop(source);
}

TEST_F(SystemDispatchTimer, CancelledOnItsOwnQueueItNeverFiresAgainThoughAFiringWaits) {
  Record record;
  void* const source = timer(record);
  setTimer(source, after(0, second), second);
  activate(source);
  struct Step {
    TestHost* host;
    void* source;
  } step{&host, source};
  sync(queue, &step, [](void* context) {
    const auto* const given = static_cast<Step*>(context);
    given->host->advance(second);
    cancel(given->source);
  });
  pass(5 * second);
  EXPECT_EQ(record.heard, 0);
  EXPECT_EQ(host.alarmCount(), 0U);
  release(source);
}

TEST_F(SystemDispatchTimer, TheHandlerIsGivenTheContextOfTheMomentWhenItWasSet) {
  Record early;
  Record late;
  void* const source = timer(early);
  setContext(source, &late);
  setTimer(source, after(0, second), forever);
  activate(source);
  pass(second);
  EXPECT_EQ(early.heard, 1);
  EXPECT_EQ(late.heard, 0);
  drop(source);
  EXPECT_TRUE(eventually([&] { return late.finalized == 1; }));
}

TEST_F(SystemDispatchTimer, TheFinalizerRunsOnItsQueueAfterTheLastEvent) {
  Record record;
  void* const source = timer(record, [](void* context) {
    auto* const own = static_cast<Record*>(context);
    cancel(own->source);
    release(own->source);
    EXPECT_EQ(own->finalized, 0);
    ++own->heard;
  });
  setTimer(source, after(0, second), second);
  activate(source);
  pass(second);
  settle(queue);
  EXPECT_EQ(record.heard, 1);
  EXPECT_EQ(record.finalized, 1);
  EXPECT_EQ(liveObjects("dispatch_source"), 0);
}

TEST_F(SystemDispatchTimer, TheFinalizerWaitsForARunningQueue) {
  Record record;
  void* const source = timer(record);
  activate(source);
  cancel(source);
  struct Step {
    void* source;
    Record* record;
  } step{source, &record};
  sync(queue, &step, [](void* context) {
    const auto* const given = static_cast<Step*>(context);
    release(given->source);
    EXPECT_EQ(given->record->finalized, 0);
  });
  settle(queue);
  EXPECT_EQ(record.finalized, 1);
}

TEST_F(SystemDispatchTimer, ANullContextIsNotFinalized) {
  static std::atomic<int> finalized = 0;
  void* const source = makeTimer(queue);
  setFinalizer(source, [](void* /*context*/) { ++finalized; });
  activate(source);
  drop(source);
  settle(queue);
  EXPECT_TRUE(eventually([] { return liveObjects("dispatch_source") == 0; }));
  EXPECT_EQ(finalized, 0);
}

TEST_F(SystemDispatchTimer, ActivatingAndCancellingTwiceIsFine) {
  Record record;
  void* const source = timer(record);
  setTimer(source, after(0, second), forever);
  activate(source);
  activate(source);
  pass(second);
  EXPECT_EQ(record.heard, 1);
  cancel(source);
  drop(source);
}

TEST_F(SystemDispatchTimer, CancelledBeforeItsActivationItNeverFires) {
  Record record;
  void* const source = timer(record);
  setTimer(source, 0, second);
  cancel(source);
  activate(source);
  EXPECT_EQ(host.alarmCount(), 0U);
  release(source);
}

TEST_F(SystemDispatchTimer, ReleasedUncancelledItIsNotedAndStops) {
  constexpr const char* rule = "a dispatch source was released without being cancelled";
  Record record;
  void* const source = timer(record);
  setTimer(source, after(0, second), second);
  activate(source);
  const std::int64_t before = notedRules(rule);
  release(source);
  EXPECT_EQ(notedRules(rule), before + 1);
  pass(3 * second);
  EXPECT_EQ(record.heard, 0);
}

TEST_F(SystemDispatchTimerDeathTest, ReleasedNeverActivatedItTraps) {
  EXPECT_DEATH(release(makeTimer(queue)),
               "tin-mac: dispatch_release of a source that was never activated");
}

TEST_F(SystemDispatchTimerDeathTest, ChangedAfterItsActivationItTraps) {
  Record record;
  void* const source = timer(record);
  activate(source);
  const char* const rule = "tin-mac: a dispatch source was changed after its activation";
  EXPECT_DEATH(setHandler(source, hear), rule);
  EXPECT_DEATH(setContext(source, nullptr), rule);
  EXPECT_DEATH(setTimer(source, 0, second), rule);
  drop(source);
}

TEST_F(SystemDispatchTimerDeathTest, AnIntervalOfZeroTraps) {
  EXPECT_DEATH(setTimer(makeTimer(queue), 0, 0), "dispatch_source_set_timer: an interval of 0");
}

TEST(SystemDispatchTime, IsAMomentOfTheMachinesUptime) {
  TestHost host;
  const auto now = static_cast<std::uint64_t>(host.uptime());
  EXPECT_EQ(after(0, 0), now);
  EXPECT_EQ(after(0, 5), now + 5);
  EXPECT_EQ(after(now + 7, -3), now + 4);
  EXPECT_EQ(after(7, -30), 1U);
  EXPECT_EQ(after(forever, -30), forever);
  EXPECT_EQ(after(7, INT64_MAX), forever);
}

TEST(SystemDispatchTimeDeathTest, AWallClocksMomentTraps) {
  TestHost host;
  EXPECT_DEATH(after(forever - 1, 0), "tin-mac: a moment of dispatch that is not on the uptime");
}

}  // namespace

}  // namespace tinmac::test
