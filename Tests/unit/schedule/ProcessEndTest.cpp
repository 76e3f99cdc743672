#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Bench.h"
#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {
namespace {

/// Notes its own destruction.
struct Witness {
  Bench& bench;
  std::string name;
  ~Witness() { bench.note("~" + name); }
};

/// Releases a lock at the end of its scope.
struct Held {
  korvel::LockPrimitive& lock;
  ~Held() { lock.unlock(); }
};

struct ProcessEndTest : OnBench {
  std::shared_ptr<korvel::WorkQueue> queue = dispatch.makeSerialQueue("q");
  std::shared_ptr<korvel::WorkQueue> idle = dispatch.makeSerialQueue("idle");
  std::unique_ptr<korvel::LockPrimitive> lock = dispatch.makeLock("1");

  void kill() { scheduler.killAndUnwind(process); }
  const std::string& notesKilledAfter(double seconds) {
    runFor(seconds);
    kill();
    return notes;
  }
};

TEST_F(ProcessEndTest, UnwindsAThreadThatIsInAPlatformCall) {
  queue->async([this] {
    const Witness witness{*this, "call"};
    busy(10);
    note("never");
  });
  EXPECT_EQ(notesKilledAfter(1), "~call@1000 ");
  EXPECT_TRUE(process.gone());
  EXPECT_EQ(endings, 1);
}

TEST_F(ProcessEndTest, UnwindsAThreadThatWaitsForAGroup) {
  const auto group = dispatch.makeGroup();
  group->enter();
  queue->async([&] {
    const Witness witness{*this, "wait"};
    group->wait(10);
    note("never");
  });
  EXPECT_EQ(notesKilledAfter(1), "~wait@1000 ");
}

TEST_F(ProcessEndTest, UnwindsHolderAndWaiterOfALock) {
  const auto other = dispatch.makeSerialQueue("other");
  queue->async([this] {
    const Witness witness{*this, "holder"};
    lock->lock();
    const Held held{*lock};
    busy(10);
  });
  other->async([this] {
    const Witness witness{*this, "waiter"};
    lock->lock();
    note("never");
  });
  EXPECT_EQ(notesKilledAfter(1), "~holder@1000 ~waiter@1000 ");
}

TEST_F(ProcessEndTest, ASyncCallerOutlivesTheWorkThatRefersToItsStack) {
  dispatch.postToMain([this] {
    const Witness witness{*this, "caller"};
    queue->sync([this] {
      const Witness inner{*this, "work"};
      busy(10);
    });
    note("never");
  });
  EXPECT_EQ(notesKilledAfter(1), "~work@1000 ~caller@1000 ");
}

TEST_F(ProcessEndTest, ASyncCallerWhoseWorkHasNotBegunUnwinds) {
  queue->async([this] {
    const Witness witness{*this, "busy"};
    busy(10);
  });
  dispatch.postToMain([this] {
    const Witness witness{*this, "caller"};
    queue->sync([this] { note("never"); });
  });
  EXPECT_EQ(notesKilledAfter(1), "~caller@1000 ~busy@1000 ");
}

TEST_F(ProcessEndTest, PendingWorkIsDroppedAfterTheThreadsHaveUnwound) {
  queue->async([this] {
    const Witness witness{*this, "running"};
    busy(10);
  });
  queue->async([this, pending = std::make_unique<Witness>(*this, "pending")] { note("never"); });
  EXPECT_EQ(notesKilledAfter(1), "~running@1000 ~pending@1000 ");
}

TEST_F(ProcessEndTest, FromInsideTheCallerUnwindsAtItsNextCall) {
  const auto other = dispatch.makeSerialQueue("other");
  other->async([this] {
    const Witness witness{*this, "other"};
    busy(10);
  });
  queue->async([this] {
    const Witness witness{*this, "self"};
    scheduler.end(process);
    note("still here");
    lock->lock();
    note("never");
  });
  EXPECT_EQ(notesAfter(0), "still here@0 ~self@0 ~other@0 ");
  EXPECT_TRUE(process.gone());
}

TEST_F(ProcessEndTest, EveryCallOfADeadProcessUnwinds) {
  const auto group = dispatch.makeGroup();
  kill();
  EXPECT_THROW(queue->async([] {}), ProcessEnded);
  EXPECT_THROW(queue->sync([] {}), ProcessEnded);
  EXPECT_THROW(lock->lock(), ProcessEnded);
  EXPECT_THROW(group->wait(1), ProcessEnded);
  EXPECT_THROW(busy(1), ProcessEnded);
  EXPECT_NO_THROW(lock->unlock());
}

TEST_F(ProcessEndTest, WorkThatOthersGiveADeadProcessIsDroppedAtOnce) {
  scheduler.end(process);
  dispatch.postToMain([this, work = std::make_unique<Witness>(*this, "dying")] { note("never"); });
  kill();
  dispatch.postToMain([this, work = std::make_unique<Witness>(*this, "dead")] { note("never"); });
  EXPECT_EQ(notes, "~dying@0 ~dead@0 ");
  EXPECT_EQ(notesAfter(60), "~dying@0 ~dead@0 ");
}

TEST_F(ProcessEndTest, TimersOfADeadProcessDoNotFireThoughTheyAreStillThere) {
  const auto timer = dispatch.makeTimer(queue);
  timer->setEventHandler([this] { note("tick"); });
  timer->schedule(0, 5.0, 0);
  timer->resume();
  runFor(5);
  kill();
  EXPECT_EQ(notesAfter(60), "tick@0 tick@5000 ");
}

TEST_F(ProcessEndTest, CallsMadeWhileUnwindingDoNothing) {
  queue->async([this] {
    struct Late {
      ProcessEndTest& test;
      ~Late() {
        test.lock->lock();
        test.lock->unlock();
        test.queue->async([this] { test.note("never"); });
        test.queue->sync([this] { test.note("never"); });
        test.idle->async([this] { test.note("never"); });
        test.note("late");
      }
    } late{*this};
    busy(10);
  });
  EXPECT_EQ(notesKilledAfter(1), "late@1000 ");
}

TEST_F(ProcessEndTest, UnwindsWhileTheMachineSleeps) {
  clock.sleepBetween(1, 1000);
  queue->async([this] {
    const Witness witness{*this, "frozen"};
    busy(10);
  });
  EXPECT_EQ(notesKilledAfter(2), "~frozen@1000 ");
}

TEST_F(ProcessEndTest, OtherProcessesGoOn) {
  ThreadGroup second("second", {});
  const auto secondMain = std::make_shared<Lane>(scheduler, "second main", &second);
  VirtualDispatch itsDispatch(scheduler, second, secondMain, observers);
  const auto survivor = itsDispatch.makeSerialQueue("survivor");
  survivor->async([&] {
    scheduler.sleepUntil(fromSeconds(2), &second);
    note("survived");
  });
  runFor(1);
  kill();
  EXPECT_EQ(notesAfter(5), "survived@2000 ");
  scheduler.killAndUnwind(second);
}

TEST_F(ProcessEndTest, TheDrivingThreadsCallIntoADyingProcessUnwindsToo) {
  EXPECT_THROW(queue->sync([this] {
    scheduler.end(process);
    busy(1);
  }),
               ProcessEnded);
  EXPECT_TRUE(process.gone());
}

/// Runs a process that does a bit of everything, and kills it at one of its steps.
class Killed {
 public:
  explicit Killed(int atStep) : killStep(atStep) {
    bench.dispatch.postToMain([this] {
      const Scoped scoped(*this);
      step();
      queue->sync([this] {
        const Scoped inner(*this);
        step();
        bench.busy(1);
        step();
      });
      step();
      group->enter();
      queue->async([this, kept = group] {
        const Scoped inner(*this);
        bench.busy(0.5);
        step();
        kept->leave();
      });
      group->wait(0.2);
      step();
      group->wait(10);
      step();
    });
    other->async([this] {
      for (int i = 0; i < 5; ++i) {
        const Scoped scoped(*this);
        lock->lock();
        const Held held{*lock};
        step();
        bench.busy(0.3);
        step();
      }
    });
  }
  ~Killed() { bench.scheduler.killAndUnwind(bench.process); }

  void run() { bench.runFor(20); }

  Bench bench;
  int steps = 0;
  int live = 0;

 private:
  struct Scoped {
    explicit Scoped(Killed& of) : owner(of) { ++owner.live; }
    ~Scoped() { --owner.live; }
    Killed& owner;
  };
  void step() {
    bench.scheduler.requireAlive(&bench.process);
    if (++steps == killStep) {
      bench.scheduler.end(bench.process);
      bench.scheduler.requireAlive(&bench.process);
    }
  }

  int killStep;
  std::shared_ptr<korvel::WorkQueue> queue = bench.dispatch.makeSerialQueue("q");
  std::shared_ptr<korvel::WorkQueue> other = bench.dispatch.makeSerialQueue("other");
  std::shared_ptr<korvel::DispatchGroup> group = bench.dispatch.makeGroup();
  std::unique_ptr<korvel::LockPrimitive> lock = bench.dispatch.makeLock("1");
};

TEST(KillSweepTest, UnwindsCompletelyFromEveryPoint) {
  Killed whole(0);
  whole.run();
  ASSERT_EQ(whole.steps, 17);
  ASSERT_EQ(whole.live, 0);
  for (int k = 1; k <= whole.steps; ++k) {
    Killed killed(k);
    killed.run();
    EXPECT_EQ(killed.steps, k);
    EXPECT_EQ(killed.live, 0) << "killed at step " << k;
    EXPECT_TRUE(killed.bench.process.gone()) << "killed at step " << k;
    EXPECT_EQ(killed.bench.endings, 1);
  }
}

TEST(ThreadCountTest, AThousandBenchesNeedNoMoreThreadsThanOne) {
  const auto exercise = [] {
    Bench bench;
    for (int i = 0; i < 4; ++i) {
      bench.dispatch.makeSerialQueue("q")->async([&bench] { bench.busy(1); });
    }
    bench.runFor(0.5);
    EXPECT_GE(bench.scheduler.workerCount(), 5U);
  };
  exercise();
  const std::size_t before = hostsystem::threadCount();
  for (int i = 0; i < 1000; ++i) exercise();
  EXPECT_EQ(hostsystem::threadCount(), before);
}

}  // namespace
}  // namespace virtualmac
