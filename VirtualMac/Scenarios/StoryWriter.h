#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace virtualmac {

/// A step of a story that a program writes.
struct WrittenStep {
  double time = 0;  ///< Seconds from the start.
  std::vector<std::string> actions = {};
  std::string reply = {};                ///< Empty: as usual, `ok`.
  std::vector<std::string> within = {};  ///< With their times: `5s gate paused`.
  std::vector<std::string> holds = {};   ///< The same.
  std::vector<std::string> expect = {};
};

/// A story that a program writes.
struct WrittenStory {
  std::string name;
  std::string description;
  std::string profile;
  std::optional<std::uint64_t> seed;
  /// Keys and values of the start, in the order in which they are done.
  std::vector<std::pair<std::string, std::string>> start;
  std::vector<WrittenStep> steps;  ///< In the order of time.
  double end = 0;

  /// As YAML, written as a person would.
  [[nodiscard]] std::string text() const;
};

/// `00:42:10`, `1d 02:00:05.125`: exact to the millisecond.
std::string momentText(double seconds);
/// `1h30m`, `42s`, `0.5s`
std::string durationText(double seconds);

}  // namespace virtualmac
