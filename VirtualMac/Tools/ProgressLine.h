#pragma once

#include <chrono>
#include <string>

namespace virtualmac {

/// One line on a terminal's standard error that says how far a run is. It appears when the run has
/// taken two real seconds, and is wiped away at the end. Where standard error is no terminal,
/// nothing is ever written.
class ProgressLine {
 public:
  /// `title` begins the line. Not `wanted`: it says nothing.
  ProgressLine(std::string title, bool wanted);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  /// `now` of `end` virtual seconds are over. May be called as often as one likes.
  void show(double now, double end);

 private:
  std::string title;
  bool wanted;
  bool shown = false;
  std::chrono::steady_clock::time_point due;
};

}  // namespace virtualmac
