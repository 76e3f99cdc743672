#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>

namespace benchmarks {

/// The kernel tells these of a process.
struct ProcessFigures {
  double residentKiB = 0;
  double privateKiB = 0;  ///< Pages that it wrote.
  double threads = 0;
  double descriptors = 0;
  /// Of a thread that lives.
  struct Thread {
    double wakeups = 0;  ///< So often it began to wait.
    double processorSeconds = 0;
  };
  std::map<std::string, Thread> byThread = {};
};

/// Of all threads that live `now`, what came since `before`.
ProcessFigures::Thread since(const ProcessFigures& before, const ProcessFigures& now);

/// None: there is no such process.
std::optional<ProcessFigures> figuresOf(pid_t process);

/// Sends SIGTERM and waits for the process, which may be another one's child. Returns the seconds
/// until its end; none: it lives after ten.
std::optional<double> secondsToEnd(pid_t process);

}  // namespace benchmarks
