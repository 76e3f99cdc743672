#pragma once

#include <cstdint>

#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

/// Virtual durations and points in time, as whole nanoseconds so that cutting a stretch of time
/// into pieces never changes its outcome.
using Nanoseconds = std::int64_t;

inline constexpr Nanoseconds nanosecondsPerSecond = 1'000'000'000;
/// Stands for "never" where a duration is asked for; about 146 years.
inline constexpr Nanoseconds neverNanoseconds = INT64_MAX / 2;

constexpr Nanoseconds fromSeconds(double seconds) {
  const double scaled = seconds * 1e9;
  return static_cast<Nanoseconds>(scaled < 0 ? scaled - 0.5 : scaled + 0.5);
}
constexpr double toSeconds(Nanoseconds duration) { return static_cast<double>(duration) / 1e9; }

/// What every part of the machine shares: where effects are told, the machine's time, and a counter
/// of changes. A part notes each change that another part may depend on; the machine compares the
/// counter instead of asking every part, which keeps a quiet machine almost free.
struct MachineContext {
  Journal& journal;
  Nanoseconds total = 0;  ///< Since the machine was made.
  std::uint64_t revision = 1;

  void noteChange() { ++revision; }
};

}  // namespace virtualmac
