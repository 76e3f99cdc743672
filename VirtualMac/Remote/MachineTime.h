#pragma once

#include <chrono>
#include <cstdint>

#include "VirtualMac/Machine/MachineContext.h"

namespace virtualmac {

/// Relates a machine's time to real time from some moment on. The steady clock is the same in every
/// process of a host, so the machine and its helper compute the same moments from this.
///
/// Timers follow the machine's uptime. It runs `speed` times as fast as real time, and stands still
/// while the machine sleeps.
struct MachineTime {
  std::int64_t steadyNanoseconds = 0;  ///< This holds from that real moment on.
  Nanoseconds uptime = 0;              ///< The machine's uptime then.
  double speed = 1;                    ///< Virtual seconds in a real one.
  bool frozen = false;                 ///< Asleep: the uptime stays as it is.

  friend bool operator==(const MachineTime&, const MachineTime&) = default;
};

inline std::int64_t steadyNow() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

/// The uptime at a moment of the steady clock.
inline Nanoseconds uptimeAt(const MachineTime& time, std::int64_t steady) {
  if (time.frozen || steady <= time.steadyNanoseconds) return time.uptime;
  return time.uptime + static_cast<Nanoseconds>(
                           static_cast<double>(steady - time.steadyNanoseconds) * time.speed);
}

/// The real duration after which this much virtual time has passed, rounded up.
inline std::chrono::nanoseconds realDuration(const MachineTime& time, Nanoseconds virtualDuration) {
  return std::chrono::nanoseconds(
      static_cast<std::int64_t>(static_cast<double>(virtualDuration) / time.speed) + 1);
}

}  // namespace virtualmac
