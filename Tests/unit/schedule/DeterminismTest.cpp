#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Bench.h"

namespace virtualmac {
namespace {

/// Runs some queues with locks, timers and waits in one schedule, and returns their notes.
std::string run(Scheduler::Order order, std::uint64_t seed) {
  Bench bench(order, seed);
  std::vector<std::shared_ptr<korvel::WorkQueue>> queues;
  for (int i = 0; i < 4; ++i) {
    queues.push_back(bench.dispatch.makeSerialQueue("q" + std::to_string(i)));
  }
  const auto lock = bench.dispatch.makeLock("1");
  int counter = 0;
  for (int i = 0; i < 4; ++i) {
    queues[static_cast<std::size_t>(i)]->async([&, i] {
      for (int turn = 0; turn < 3; ++turn) {
        lock->lock();
        const int seen = counter;
        bench.busy(0.001);
        counter = seen + 1;
        lock->unlock();
        bench.note(std::to_string(i));
        queues[static_cast<std::size_t>((i + 1) % 4)]->async([&] { bench.note("p"); });
      }
    });
  }
  const auto timer = bench.dispatch.makeTimer(queues[0]);
  timer->setEventHandler([&] { bench.note("t"); });
  timer->schedule(0, 0.004, 0);
  timer->resume();
  bench.runFor(0.02);
  EXPECT_EQ(counter, 12) << "the lock let two in";
  return bench.notes;
}

TEST(DeterminismTest, FirstInFirstOutDoesNotDependOnTheSeed) {
  EXPECT_EQ(run(Scheduler::Order::Fifo, 1), run(Scheduler::Order::Fifo, 2));
}

TEST(DeterminismTest, OneSeedGivesOneSchedule) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    EXPECT_EQ(run(Scheduler::Order::Seeded, seed), run(Scheduler::Order::Seeded, seed));
  }
}

TEST(DeterminismTest, DifferentSeedsGiveDifferentSchedules) {
  std::set<std::string> schedules;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    schedules.insert(run(Scheduler::Order::Seeded, seed));
  }
  EXPECT_GT(schedules.size(), 25U);
}

TEST(DeterminismTest, ASeedFindsALostUpdateThatFirstInFirstOutHides) {
  const auto increments = [](Scheduler::Order order, std::uint64_t seed) {
    Bench bench(order, seed);
    const auto one = bench.dispatch.makeSerialQueue("one");
    const auto two = bench.dispatch.makeSerialQueue("two");
    int counter = 0;
    for (const auto& queue : {one, two}) {
      queue->async([&] {
        const int seen = counter;
        bench.scheduler.mayInterrupt();
        counter = seen + 1;
      });
    }
    bench.scheduler.runUntilIdle();
    return counter;
  };
  EXPECT_EQ(increments(Scheduler::Order::Fifo, 1), 2);
  int lost = 0;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    if (increments(Scheduler::Order::Seeded, seed) == 1) ++lost;
  }
  EXPECT_GT(lost, 0);
  EXPECT_LT(lost, 50);
}

TEST(RandomTest, HasOneSequenceForEachSeed) {
  Random one(7);
  Random same(7);
  Random other(8);
  bool differs = false;
  for (int i = 0; i < 10; ++i) {
    const std::uint64_t value = one.next();
    EXPECT_EQ(value, same.next());
    differs = differs || value != other.next();
  }
  EXPECT_TRUE(differs);
}

TEST(RandomTest, BoundsAreReachedAndKept) {
  Random random(3);
  std::set<std::uint64_t> below;
  std::set<std::int64_t> between;
  for (int i = 0; i < 1000; ++i) {
    below.insert(random.below(5));
    between.insert(random.between(-2, 2));
    const double unit = random.unit();
    EXPECT_GE(unit, 0);
    EXPECT_LT(unit, 1);
  }
  EXPECT_EQ(below, (std::set<std::uint64_t>{0, 1, 2, 3, 4}));
  EXPECT_EQ(between, (std::set<std::int64_t>{-2, -1, 0, 1, 2}));
}

}  // namespace
}  // namespace virtualmac
