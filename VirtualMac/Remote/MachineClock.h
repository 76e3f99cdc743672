#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

#include "VirtualMac/Remote/MachineTime.h"

namespace virtualmac {

/// The machine's time in the helper's process, and alarms on it. One thread waits for the earliest
/// alarm; while the machine sleeps it waits for the machine.
///
/// Alarm handlers run on that thread and only post work. Setting the time never waits for them.
class MachineClock {
 public:
  using AlarmID = std::uint64_t;

  explicit MachineClock(MachineTime now);
  ~MachineClock();
  MachineClock(const MachineClock&) = delete;
  MachineClock& operator=(const MachineClock&) = delete;

  /// Ignored when older than the time already set.
  void setTime(const MachineTime& now);
  [[nodiscard]] MachineTime time() const;
  [[nodiscard]] Nanoseconds uptime() const;

  /// Runs `handler` once when the uptime reaches `uptime`.
  AlarmID addAlarm(Nanoseconds uptime, std::function<void()> handler);
  /// Does not wait for an alarm that has begun to run.
  void removeAlarm(AlarmID alarm);

 private:
  struct Alarm {
    AlarmID id;
    std::function<void()> handler;
  };
  void run();

  mutable std::mutex mutex;
  std::condition_variable changed;
  MachineTime current;
  std::multimap<Nanoseconds, Alarm> alarms;
  AlarmID lastAlarm = 0;
  bool stopping = false;
  std::thread thread;
};

}  // namespace virtualmac
