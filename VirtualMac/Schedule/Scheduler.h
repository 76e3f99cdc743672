#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Base/Task.h"
#include "VirtualMac/Schedule/Alarm.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Random.h"
#include "VirtualMac/Schedule/VirtualTime.h"
#include "VirtualMac/Schedule/Worker.h"

namespace virtualmac {

/// Thrown when no lane can ever run again, or when work goes on without time passing. The text
/// names the lanes and their waits.
class StuckError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Runs the threads of simulated processes one at a time in virtual time.
///
/// Terms. A *lane* is a thread as the program sees it. The *baton* is the right to run; exactly one
/// thread has it. The *driver* is the thread that made the scheduler, a test's: it has the baton
/// until it drives, and gets it back when that drive is over.
///
/// Normal flow. The thread that gives up the baton (at a wait, the end of a piece of work, a
/// platform call that takes time) picks the next lane; if it picks its own, nothing is switched.
/// Time jumps only when no lane can run: to the next alarm or the next event of the machine. Lanes
/// run in the order in which they became ready, or in one drawn from the seed; with a seed, a lane
/// may also be interrupted at posts, locks and platform calls.
///
/// End of a process. It takes effect at once: no alarm or queued work of it begins any more. Its
/// lanes run before all others, and unwind from the point where they wait or make their next call.
///
/// Threads. All state belongs to the holder of the baton; handing it over orders memory.
///
/// Failure. The driver gets a StuckError when lanes wait for each other, when it waits for
/// something that cannot come, and when work goes on without time passing.
class Scheduler {
 public:
  enum class Order : std::uint8_t { Fifo, Seeded };

  /// No healthy program does this much at one moment of virtual time.
  static constexpr std::uint64_t usualRoundsAtOneMoment = 2'000'000;

  /// Work that goes on for more than `mostRoundsAtOneMoment` without time is reported.
  Scheduler(SchedulerClock& machineClock, Order order, std::uint64_t seed,
            std::uint64_t mostRoundsAtOneMoment = usualRoundsAtOneMoment);
  /// Every process must be gone.
  ~Scheduler();
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  // For the driver
  /// Runs everything that is due within `duration`, its end included, and lets it pass.
  void runFor(Nanoseconds duration);
  /// Runs everything that is due now.
  void runUntilIdle() { runFor(0); }
  /// Runs until `reached` holds, asked after every piece of work; false: not within `limit`.
  bool runUntil(const std::function<bool()>& reached, Nanoseconds limit);
  /// Ends a process from outside and returns when it is gone.
  void killAndUnwind(ThreadGroup& process);

  // For the holder of the baton
  /// Marks a process as ended. The caller, if it is one of its lanes, unwinds by itself.
  void end(ThreadGroup& process);
  /// Adds work to a lane; drops it when the lane's process has ended.
  void post(Lane& lane, korvel::Task work);
  /// Lets other lanes run first when the seed says so.
  void mayInterrupt();
  /// Gives up the baton until uptime `due`. `process` made the call that takes so long.
  void sleepUntil(Nanoseconds due, ThreadGroup* process);
  /// Gives up the baton until woken; false: `timeout` came first.
  bool block(Wait wait, std::optional<Nanoseconds> timeout = {});
  void wake(Lane& lane);
  /// Runs the calling lane's further work for ever, in the middle of this piece.
  [[noreturn]] void serveInbox();
  /// Unwinds the caller when `process` has ended, unless it is unwinding already.
  void requireAlive(const ThreadGroup* process) const;
  /// Whether a call may leave by an exception here.
  [[nodiscard]] bool mayUnwind() const;

  /// The calling lane; the driver's for any thread that is not a worker of this scheduler.
  [[nodiscard]] Lane& current();
  [[nodiscard]] const Lane& driver() const { return *driverLane; }
  [[nodiscard]] SchedulerClock& time() { return clock; }
  [[nodiscard]] AlarmClock& alarms() { return alarmClock; }
  [[nodiscard]] Random& random() { return randomNumbers; }
  /// Threads of the operating system that this scheduler has borrowed.
  [[nodiscard]] std::size_t workerCount() const { return workers.size(); }
  /// How often the baton went from one thread to another.
  [[nodiscard]] std::uint64_t switches() const { return switchCount; }

 private:
  friend class Lane;
  friend class Worker;

  struct Drive {
    bool active = false;
    Nanoseconds until = 0;  ///< Total time.
    const std::function<bool()>* reached = nullptr;
    bool happened = false;
  };

  void serve(Worker& worker, std::shared_ptr<Lane> lane);
  void runNextWork(Lane& lane, BatonPass& carrier);
  void makeReady(Lane& lane);
  void giveUpBaton(Lane& self);
  void handTo(std::shared_ptr<Lane> next);
  std::shared_ptr<Lane> pick();
  std::shared_ptr<Lane> pickReady();
  std::shared_ptr<Lane> stopDriving();
  bool letTimePass();
  void drive(Drive task);
  void reapIfOver(ThreadGroup& process);
  void checkForCycle(const Lane& start);
  void reportStuck(std::string text);
  [[nodiscard]] bool someoneWaitsForEver() const;
  [[nodiscard]] std::string describeWaits() const;
  Worker& idleWorker();

  SchedulerClock& clock;
  Order ordering;
  Random randomNumbers;
  AlarmClock alarmClock;
  std::vector<std::shared_ptr<Lane>> ready;
  std::vector<Lane*> blocked;
  std::vector<std::unique_ptr<Worker>> workers;
  std::vector<Worker*> idle;
  BatonPass driverPass;
  std::shared_ptr<Lane> driverLane;
  Drive driving;
  std::optional<std::string> stuck;
  const std::uint64_t mostRounds;
  std::uint64_t roundsAtThisMoment = 0;
  std::uint64_t switchCount = 0;
  bool reaping = false;
};

}  // namespace virtualmac
