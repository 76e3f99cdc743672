#pragma once

#include <csignal>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace virtualmac {

/// Lets a program that is told to stop (Ctrl-C, SIGTERM, a terminal that closes) end in order:
/// while one of these lives, such a signal is only noted. A signal that was ignored stays ignored.
class StopSignals {
 public:
  /// With `secondEnds` a second signal ends the program at once. That is for work that may never
  /// call `caught` and leaves nothing behind.
  explicit StopSignals(bool secondEnds);
  /// Gives the signals back the effect that they had before.
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// The signal that came last; none: go on.
  [[nodiscard]] std::optional<int> caught() const;

 private:
  std::vector<std::pair<int, struct sigaction>> before;
};

/// `SIGINT` for 2; the number where it has no name here.
std::string signalName(int number);

/// Ends the program by this signal, so that its parent knows: a shell then leaves its loop. If the
/// signal does not end it, returns the exit status that says the same.
int endBySignal(int number);

}  // namespace virtualmac
