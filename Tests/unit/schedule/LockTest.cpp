#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Base/Lock.h"
#include "Bench.h"
#include "VirtualMac/Schedule/VirtualLock.h"

namespace virtualmac {
namespace {

struct LockTest : testing::Test {
  Bench bench;
  // The threads must unwind before the objects that they wait for are destroyed.
  void TearDown() override { bench.scheduler.killAndUnwind(bench.process); }

  std::shared_ptr<korvel::WorkQueue> one = bench.dispatch.makeSerialQueue("one");
  std::shared_ptr<korvel::WorkQueue> two = bench.dispatch.makeSerialQueue("two");
  std::shared_ptr<korvel::WorkQueue> three = bench.dispatch.makeSerialQueue("three");
  std::unique_ptr<korvel::LockPrimitive> lock = bench.dispatch.makeLock("1");
  std::unique_ptr<korvel::LockPrimitive> other = bench.dispatch.makeLock("2");
};

TEST_F(LockTest, LetsOneThreadInAndTheOthersInTheirOrder) {
  for (const auto& [queue, name] : {std::pair(one, "one"), {two, "two"}, {three, "three"}}) {
    queue->async([this, name] {
      lock->lock();
      bench.note(name);
      bench.busy(1);
      lock->unlock();
    });
  }
  bench.runFor(5);
  EXPECT_EQ(bench.notes, "one@0 two@1000 three@2000 ");
}

TEST_F(LockTest, AFreeLockIsTakenWithoutASwitch) {
  bench.scheduler.runUntilIdle();
  const std::uint64_t before = bench.scheduler.switches();
  one->async([this] {
    for (int i = 0; i < 100; ++i) {
      lock->lock();
      lock->unlock();
    }
  });
  two->async([this] { bench.note("two"); });
  bench.runFor(0);
  // One switch goes to a worker and one comes back.
  EXPECT_EQ(bench.scheduler.switches() - before, 2U);
}

TEST_F(LockTest, TheDrivingThreadMayHoldIt) {
  lock->lock();
  one->async([this] {
    lock->lock();
    bench.note("one");
    lock->unlock();
  });
  bench.runFor(0.5);
  EXPECT_EQ(bench.notes, "");
  lock->unlock();
  bench.runFor(0.5);
  EXPECT_EQ(bench.notes, "one@500 ");
}

TEST_F(LockTest, ObserversSeeWhatAThreadHolds) {
  struct Watcher final : ScheduleObserver {
    std::string seen;
    void lockTaken(const Lane& lane, const VirtualLock& taken) override {
      seen += lane.name() + ' ' + taken.name() + " of " + std::to_string(lane.locksHeld().size()) +
              "; ";
    }
  } watcher;
  bench.observers.add(watcher);
  one->async([this] {
    lock->lock();
    other->lock();
    other->unlock();
    lock->unlock();
    other->lock();
    other->unlock();
  });
  bench.runFor(0);
  EXPECT_EQ(watcher.seen, "one 1 of 1; one 2 of 2; one 2 of 1; ");
  bench.observers.remove(watcher);
}

TEST_F(LockTest, ALongWaitIsToldToObservers) {
  struct Watcher final : ScheduleObserver {
    std::string seen;
    void waited(const Lane& lane, std::string_view what, double seconds) override {
      seen += lane.name() + ' ' + std::string(what) + ' ' + std::to_string(seconds);
    }
  } watcher;
  bench.observers.add(watcher);
  one->async([this] {
    lock->lock();
    bench.busy(2);
    lock->unlock();
  });
  two->async([this] {
    lock->lock();
    lock->unlock();
  });
  bench.runFor(3);
  EXPECT_EQ(watcher.seen, "two lock 2.000000");
  bench.observers.remove(watcher);
}

using LockDeathTest = LockTest;

TEST_F(LockDeathTest, GivingBackWhatOneDoesNotHoldTraps) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(lock->unlock(), "does not hold it");
}

}  // namespace
}  // namespace virtualmac
