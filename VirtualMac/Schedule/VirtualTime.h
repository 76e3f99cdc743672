#pragma once

#include <cstdint>
#include <optional>

namespace virtualmac {

/// Virtual durations and points in time: whole nanoseconds, so that sums are exact.
using Nanoseconds = std::int64_t;

constexpr Nanoseconds nanosecondsFrom(double seconds) {
  return static_cast<Nanoseconds>(seconds * 1e9 + (seconds < 0 ? -0.5 : 0.5));
}
constexpr double secondsFrom(Nanoseconds duration) { return static_cast<double>(duration) / 1e9; }

/// The clocks that a scheduler moves. Whatever happens by itself as time passes (a battery that
/// drains, a machine that falls asleep) happens in `advance`.
class TimeKeeper {
 public:
  virtual ~TimeKeeper() = default;
  virtual Nanoseconds total() = 0;   ///< Since the start.
  virtual Nanoseconds uptime() = 0;  ///< Of that, awake: the clock of timers and waits.
  virtual bool asleep() = 0;         ///< Nothing runs, and uptime stands still.
  /// Until something happens by itself; 0: it is due now; none: nothing ahead.
  virtual std::optional<Nanoseconds> untilNextEvent() = 0;
  /// Never past the next event.
  virtual void advance(Nanoseconds duration) = 0;
};

}  // namespace virtualmac
