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

struct ProcessEndTest : testing::Test {
  Bench bench;
  std::shared_ptr<korvel::WorkQueue> queue = bench.dispatch.makeSerialQueue("q");
  std::shared_ptr<korvel::WorkQueue> idle = bench.dispatch.makeSerialQueue("idle");
  std::unique_ptr<korvel::LockPrimitive> lock = bench.dispatch.makeLock("1");

  void kill() { bench.scheduler.killAndUnwind(bench.process); }
};

TEST_F(ProcessEndTest, UnwindsAThreadThatIsInAPlatformCall) {
  queue->async([this] {
    const Witness witness{bench, "call"};
    bench.busy(10);
    bench.note("never");
  });
  bench.runFor(1);
  kill();
  EXPECT_EQ(bench.notes, "~call@1000 ");
  EXPECT_TRUE(bench.process.gone());
  EXPECT_EQ(bench.endings, 1);
}

TEST_F(ProcessEndTest, UnwindsAThreadThatWaitsForAGroup) {
  const auto group = bench.dispatch.makeGroup();
  group->enter();
  queue->async([&] {
    const Witness witness{bench, "wait"};
    group->wait(10);
    bench.note("never");
  });
  bench.runFor(1);
  kill();
  EXPECT_EQ(bench.notes, "~wait@1000 ");
}

TEST_F(ProcessEndTest, UnwindsHolderAndWaiterOfALock) {
  const auto other = bench.dispatch.makeSerialQueue("other");
  queue->async([this] {
    const Witness witness{bench, "holder"};
    lock->lock();
    const Held held{*lock};
    bench.busy(10);
  });
  other->async([this] {
    const Witness witness{bench, "waiter"};
    lock->lock();
    bench.note("never");
  });
  bench.runFor(1);
  kill();
  EXPECT_EQ(bench.notes, "~holder@1000 ~waiter@1000 ");
}

TEST_F(ProcessEndTest, ASyncCallerOutlivesTheWorkThatRefersToItsStack) {
  bench.dispatch.postToMain([this] {
    const Witness witness{bench, "caller"};
    queue->sync([this] {
      const Witness inner{bench, "work"};
      bench.busy(10);
    });
    bench.note("never");
  });
  bench.runFor(1);
  kill();
  EXPECT_EQ(bench.notes, "~work@1000 ~caller@1000 ");
}

TEST_F(ProcessEndTest, ASyncCallerWhoseWorkHasNotBegunUnwinds) {
  queue->async([this] {
    const Witness witness{bench, "busy"};
    bench.busy(10);
  });
  bench.dispatch.postToMain([this] {
    const Witness witness{bench, "caller"};
    queue->sync([this] { bench.note("never"); });
  });
  bench.runFor(1);
  kill();
  EXPECT_EQ(bench.notes, "~caller@1000 ~busy@1000 ");
}

TEST_F(ProcessEndTest, PendingWorkIsDroppedAfterTheThreadsHaveUnwound) {
  queue->async([this] {
    const Witness witness{bench, "running"};
    bench.busy(10);
  });
  queue->async(
      [this, pending = std::make_unique<Witness>(bench, "pending")] { bench.note("never"); });
  bench.runFor(1);
  kill();
  EXPECT_EQ(bench.notes, "~running@1000 ~pending@1000 ");
}

TEST_F(ProcessEndTest, FromInsideTheCallerUnwindsAtItsNextCall) {
  const auto other = bench.dispatch.makeSerialQueue("other");
  other->async([this] {
    const Witness witness{bench, "other"};
    bench.busy(10);
  });
  queue->async([this] {
    const Witness witness{bench, "self"};
    bench.scheduler.end(bench.process);
    bench.note("still here");
    lock->lock();
    bench.note("never");
  });
  bench.runFor(0);
  EXPECT_EQ(bench.notes, "still here@0 ~self@0 ~other@0 ");
  EXPECT_TRUE(bench.process.gone());
}

TEST_F(ProcessEndTest, EveryCallOfADeadProcessUnwinds) {
  const auto group = bench.dispatch.makeGroup();
  kill();
  EXPECT_THROW(queue->async([] {}), ProcessEnded);
  EXPECT_THROW(queue->sync([] {}), ProcessEnded);
  EXPECT_THROW(lock->lock(), ProcessEnded);
  EXPECT_THROW(group->wait(1), ProcessEnded);
  EXPECT_THROW(bench.busy(1), ProcessEnded);
  EXPECT_NO_THROW(lock->unlock());
}

TEST_F(ProcessEndTest, WorkThatOthersGiveADeadProcessIsDroppedAtOnce) {
  bench.scheduler.end(bench.process);
  bench.dispatch.postToMain(
      [this, work = std::make_unique<Witness>(bench, "dying")] { bench.note("never"); });
  kill();
  bench.dispatch.postToMain(
      [this, work = std::make_unique<Witness>(bench, "dead")] { bench.note("never"); });
  EXPECT_EQ(bench.notes, "~dying@0 ~dead@0 ");
  bench.runFor(60);
  EXPECT_EQ(bench.notes, "~dying@0 ~dead@0 ");
}

TEST_F(ProcessEndTest, TimersOfADeadProcessDoNotFireThoughTheyAreStillThere) {
  const auto timer = bench.dispatch.makeTimer(queue);
  timer->setEventHandler([this] { bench.note("tick"); });
  timer->schedule(0, 5.0, 0);
  timer->resume();
  bench.runFor(5);
  kill();
  bench.runFor(60);
  EXPECT_EQ(bench.notes, "tick@0 tick@5000 ");
}

TEST_F(ProcessEndTest, CallsMadeWhileUnwindingDoNothing) {
  queue->async([this] {
    struct Late {
      ProcessEndTest& test;
      ~Late() {
        test.lock->lock();
        test.lock->unlock();
        test.queue->async([this] { test.bench.note("never"); });
        test.queue->sync([this] { test.bench.note("never"); });
        test.idle->async([this] { test.bench.note("never"); });
        test.bench.note("late");
      }
    } late{*this};
    bench.busy(10);
  });
  bench.runFor(1);
  kill();
  EXPECT_EQ(bench.notes, "late@1000 ");
}

TEST_F(ProcessEndTest, UnwindsWhileTheMachineSleeps) {
  bench.clock.sleepBetween(1, 1000);
  queue->async([this] {
    const Witness witness{bench, "frozen"};
    bench.busy(10);
  });
  bench.runFor(2);
  kill();
  EXPECT_EQ(bench.notes, "~frozen@1000 ");
}

TEST_F(ProcessEndTest, OtherProcessesGoOn) {
  ThreadGroup process("second", {});
  const auto main = std::make_shared<Lane>(bench.scheduler, "second main", &process);
  VirtualDispatch dispatch(bench.scheduler, process, main, bench.observers);
  const auto survivor = dispatch.makeSerialQueue("survivor");
  survivor->async([&] {
    bench.scheduler.sleepUntil(fromSeconds(2), &process);
    bench.note("survived");
  });
  bench.runFor(1);
  kill();
  bench.runFor(5);
  EXPECT_EQ(bench.notes, "survived@2000 ");
  bench.scheduler.killAndUnwind(process);
}

TEST_F(ProcessEndTest, TheDrivingThreadsCallIntoADyingProcessUnwindsToo) {
  EXPECT_THROW(queue->sync([this] {
    bench.scheduler.end(bench.process);
    bench.busy(1);
  }),
               ProcessEnded);
  EXPECT_TRUE(bench.process.gone());
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
