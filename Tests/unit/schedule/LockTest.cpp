#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Base/Lock.h"
#include "Bench.h"
#include "VirtualMac/Schedule/VirtualLock.h"

namespace virtualmac {
namespace {

using LockTest = OnQueues;

TEST_F(LockTest, LetsOneThreadInAndTheOthersInTheirOrder) {
  for (const auto& [queue, name] : {std::pair(one, "one"), {two, "two"}, {three, "three"}}) {
    queue->async([this, name] {
      lock->lock();
      note(name);
      busy(1);
      lock->unlock();
    });
  }
  EXPECT_EQ(notesAfter(5), "one@0 two@1000 three@2000 ");
}

TEST_F(LockTest, AFreeLockIsTakenWithoutASwitch) {
  scheduler.runUntilIdle();
  const std::uint64_t before = scheduler.switches();
  one->async([this] {
    for (int i = 0; i < 100; ++i) {
      lock->lock();
      lock->unlock();
    }
  });
  two->async([this] { note("two"); });
  runFor(0);
  // One switch goes to a worker and one comes back.
  EXPECT_EQ(scheduler.switches() - before, 2U);
}

TEST_F(LockTest, TheDrivingThreadMayHoldIt) {
  lock->lock();
  one->async([this] {
    lock->lock();
    note("one");
    lock->unlock();
  });
  EXPECT_EQ(notesAfter(0.5), "");
  lock->unlock();
  EXPECT_EQ(notesAfter(0.5), "one@500 ");
}

TEST_F(LockTest, ObserversSeeWhatAThreadHolds) {
  struct Watcher final : ScheduleObserver {
    std::string seen;
    void lockTaken(const Lane& lane, const VirtualLock& taken) override {
      seen += lane.name() + ' ' + taken.name() + " of " + std::to_string(lane.locksHeld().size()) +
              "; ";
    }
  } watcher;
  observers.add(watcher);
  one->async([this] {
    lock->lock();
    other->lock();
    other->unlock();
    lock->unlock();
    other->lock();
    other->unlock();
  });
  runFor(0);
  EXPECT_EQ(watcher.seen, "one 1 of 1; one 2 of 2; one 2 of 1; ");
  observers.remove(watcher);
}

TEST_F(LockTest, ALongWaitIsToldToObservers) {
  struct Watcher final : ScheduleObserver {
    std::string seen;
    void waited(const Lane& lane, std::string_view what, double seconds) override {
      seen += lane.name() + ' ' + std::string(what) + ' ' + std::to_string(seconds);
    }
  } watcher;
  observers.add(watcher);
  one->async([this] {
    lock->lock();
    busy(2);
    lock->unlock();
  });
  two->async([this] {
    lock->lock();
    lock->unlock();
  });
  runFor(3);
  EXPECT_EQ(watcher.seen, "two lock 2.000000");
  observers.remove(watcher);
}

using LockDeathTest = LockTest;

TEST_F(LockDeathTest, GivingBackWhatOneDoesNotHoldTraps) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(lock->unlock(), "does not hold it");
}

}  // namespace
}  // namespace virtualmac
