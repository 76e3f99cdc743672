#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/sweeps/Checks.h"
#include "Tests/sweeps/Stage.h"
#include "VirtualMac/Schedule/FaultTable.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace sweeps {

/// One platform call of an undisturbed story.
struct TracedCall {
  virtualmac::SeamCall call{};
  std::uint64_t occurrence = 0;  ///< Counts calls of this kind, from 1.
  std::size_t fileVersion = 0;   ///< The version of state.json at the time of the call.
};

/// The record of an undisturbed story: all its platform calls, and all versions of state.json.
struct Trace {
  std::vector<TracedCall> calls;  ///< Call number k is element k - 1.
  std::vector<std::optional<std::string>> fileVersions;
  std::vector<std::string> unmet;  ///< Expectations that the story itself found unmet.
  std::uint64_t journalHash = 0;
};
Trace traceStory(const Story& story);

/// A case of a sweep: a story with one fault at one call.
struct Case {
  std::uint64_t k = 0;
  std::string fault;       ///< The fault, by the name that KORVEL_FAULT takes.
  std::uint64_t seed = 1;  ///< The world's seed; it decides what a power loss destroys.
};

/// The selection made in the environment. Without it a sweep takes evenly spread calls of a story,
/// as many as its budget allows; with KORVEL_FULL it takes every call.
struct Selection {
  std::optional<std::string> story;  ///< KORVEL_STORY: this story only.
  std::optional<std::uint64_t> k;    ///< KORVEL_K: this call only.
  std::optional<std::string> fault;  ///< KORVEL_FAULT: this disturbance only.
  bool full = false;                 ///< KORVEL_FULL=1: every call.
};
const Selection& selection();

/// Selects about `budget` of `total` calls to disturb.
std::vector<std::uint64_t> chosenCalls(std::uint64_t total, std::uint64_t budget);

/// Runs and counts the cases of one test. It reports cases with findings (the first few in full,
/// with the end of the journal and a command that repeats the case), and sets the property "runs"
/// of the current test.
class Sweep {
 public:
  /// `testName` is a filter for the test program, such as "*KillSweep.*".
  Sweep(const Story& subject, std::string testName);
  ~Sweep();
  Sweep(const Sweep&) = delete;
  Sweep& operator=(const Sweep&) = delete;

  /// Lets `body` play the case on a fresh stage; an exception from it is a finding.
  void run(const Case& which, const std::function<void(Stage&, Findings&)>& body);
  /// Returns false when KORVEL_FAULT asks for another fault.
  static bool wants(std::string_view fault);
  /// Returns true once more reports would only repeat earlier ones.
  [[nodiscard]] bool enough() const { return failures >= 3; }

 private:
  void report(const Case& which, Stage* stage, const Findings& findings);

  const Story& story;
  std::string filter;
  std::uint64_t runs = 0;
  std::uint64_t failures = 0;
};

}  // namespace sweeps
