#pragma once

#include <cstdint>
#include <optional>

namespace virtualmac {

/// Virtual durations and points in time: whole nanoseconds, so that cutting a stretch of time into
/// pieces never changes its outcome.
using Nanoseconds = std::int64_t;

inline constexpr Nanoseconds nanosecondsPerSecond = 1'000'000'000;
/// Stands for "never" where a duration is asked for; about 146 years.
inline constexpr Nanoseconds neverNanoseconds = INT64_MAX / 2;

constexpr Nanoseconds fromSeconds(double seconds) {
  return static_cast<Nanoseconds>(seconds * 1e9 + (seconds < 0 ? -0.5 : 0.5));
}
constexpr double toSeconds(Nanoseconds duration) { return static_cast<double>(duration) / 1e9; }

/// The clocks that a scheduler moves. A battery drains and a machine falls asleep in `advance`.
class SchedulerClock {
 public:
  virtual ~SchedulerClock() = default;
  virtual Nanoseconds total() = 0;   ///< Since the start.
  virtual Nanoseconds uptime() = 0;  ///< Of that, awake: the clock of timers and waits.
  virtual bool asleep() = 0;         ///< Nothing runs, and uptime stands still.
  /// The time until the next event of the machine's own; 0: due now; none: nothing ahead.
  virtual std::optional<Nanoseconds> untilNextEvent() = 0;
  /// Never past the next event.
  virtual void advance(Nanoseconds duration) = 0;
};

}  // namespace virtualmac
