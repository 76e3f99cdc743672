#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Schedule/Observer.h"
#include "VirtualMac/Schedule/Scheduler.h"
#include "VirtualMac/Schedule/VirtualDispatch.h"

namespace virtualmac {

/// Clocks that only the scheduler moves, with sleep and wake at given moments.
class PlainClock final : public SchedulerClock {
 public:
  Nanoseconds total() override { return totalTime; }
  Nanoseconds uptime() override { return awakeTime; }
  bool asleep() override { return sleeping; }
  std::optional<Nanoseconds> untilNextEvent() override {
    if (events.empty()) return std::nullopt;
    return std::max<Nanoseconds>(events.begin()->first - totalTime, 0);
  }
  void advance(Nanoseconds duration) override {
    totalTime += duration;
    if (!sleeping) awakeTime += duration;
    while (!events.empty() && events.begin()->first <= totalTime) {
      const std::function<void()> event = std::move(events.begin()->second);
      events.erase(events.begin());
      event();
    }
  }

  void at(double seconds, std::function<void()> event) {
    events.emplace(fromSeconds(seconds), std::move(event));
  }
  void sleepBetween(double from, double to) {
    at(from, [this] { sleeping = true; });
    at(to, [this] { sleeping = false; });
  }
  /// Sleeps or wakes now; nothing is due that would end it.
  void setAsleep(bool now) { sleeping = now; }

 private:
  Nanoseconds totalTime = 0;
  Nanoseconds awakeTime = 0;
  bool sleeping = false;
  std::multimap<Nanoseconds, std::function<void()>> events;
};

/// A scheduler with one process, whose main thread serves its loop.
class Bench {
 public:
  explicit Bench(Scheduler::Order order = Scheduler::Order::Fifo, std::uint64_t seed = 1,
                 std::uint64_t mostRounds = Scheduler::usualRoundsAtOneMoment)
      : scheduler(clock, order, seed, mostRounds),
        process("helper", [this] { ++endings; }),
        main(std::make_shared<Lane>(scheduler, "main", &process)),
        dispatch(scheduler, process, main, observers) {
    scheduler.post(*main, [this] { dispatch.runMainLoop(); });
  }
  ~Bench() { scheduler.killAndUnwind(process); }

  void note(const std::string& text) {
    notes += text + '@' + std::to_string(clock.uptime() / 1'000'000) + ' ';
  }
  void runFor(double seconds) { scheduler.runFor(fromSeconds(seconds)); }
  const std::string& notesAfter(double seconds) {
    runFor(seconds);
    return notes;
  }
  const std::string& notesWhenIdle() {
    scheduler.runUntilIdle();
    return notes;
  }
  /// Occupies its thread for some seconds, like a platform call.
  void busy(double seconds) {
    scheduler.sleepUntil(clock.uptime() + fromSeconds(seconds), &process);
    scheduler.requireAlive(&process);
  }

  PlainClock clock;
  Scheduler scheduler;
  ScheduleObservers observers;
  int endings = 0;
  ThreadGroup process;
  std::shared_ptr<Lane> main;
  VirtualDispatch dispatch;
  std::string notes;  ///< "text@uptime in ms " for each note.
};

/// A test on the bench, whose threads unwind while what they wait for is still there.
struct OnBench : testing::Test, Bench {
  using Bench::Bench;
  void TearDown() override { scheduler.killAndUnwind(process); }
};

/// A test with queues and locks over which they may meet.
struct OnQueues : OnBench {
  using OnBench::OnBench;

  std::shared_ptr<korvel::WorkQueue> one = dispatch.makeSerialQueue("one");
  std::shared_ptr<korvel::WorkQueue> two = dispatch.makeSerialQueue("two");
  std::shared_ptr<korvel::WorkQueue> three = dispatch.makeSerialQueue("three");
  std::unique_ptr<korvel::LockPrimitive> lock = dispatch.makeLock("1");
  std::unique_ptr<korvel::LockPrimitive> other = dispatch.makeLock("2");
};

}  // namespace virtualmac
