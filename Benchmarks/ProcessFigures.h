#pragma once

#include <sys/types.h>

#include <optional>

namespace benchmarks {

/// The kernel tells these of a process.
struct ProcessFigures {
  double residentKiB = 0;
  double privateKiB = 0;  ///< Pages that it wrote.
  double threads = 0;
  double wakeups = 0;           ///< So often one of its threads began to wait.
  double processorSeconds = 0;  ///< Of all its threads that live.
};

/// None: there is no such process.
std::optional<ProcessFigures> figuresOf(pid_t process);

/// Sends SIGTERM and waits for the process, which may be another one's child. Returns the seconds
/// until its end; none: it lives after ten.
std::optional<double> secondsToEnd(pid_t process);

}  // namespace benchmarks
