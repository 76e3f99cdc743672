#pragma once

#include <csignal>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace virtualmac {

/// Lets a program that is told to stop (Ctrl-C, SIGTERM, a terminal that closes) end in order: as
/// long as one of these lives, such a signal is only noted. A signal that was ignored before stays
/// so.
class StopSignals {
 public:
  /// With `secondEnds` the next one after the first ends the program at once. That is for work
  /// that may never look at the note and leaves nothing behind.
  explicit StopSignals(bool secondEnds);
  /// The signals do again what they did before.
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

/// Ends the program by this signal, so that the one who started it knows: a shell then leaves its
/// loop. Returns the exit status that says the same when the signal does not end it.
int endBySignal(int number);

}  // namespace virtualmac
