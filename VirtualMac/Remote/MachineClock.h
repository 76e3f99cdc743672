#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "VirtualMac/Remote/MachineTime.h"

namespace virtualmac {

class EventThread;

/// The machine's time in the helper's process, and alarms on it. While the machine sleeps, alarms
/// wait for it.
///
/// Alarm handlers run on the thread of events and only post work. Setting the time never waits for
/// them. That thread stops before the clock, or else a handler that has begun may outlive it. Any
/// thread.
class MachineClock {
 public:
  using AlarmID = std::uint64_t;

  MachineClock(MachineTime now, EventThread& events);
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
  struct State;
  std::shared_ptr<State> state;  ///< Shared with what waits on the thread of events.
};

}  // namespace virtualmac
