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
  std::uint64_t occurrence = 0;  ///< This call of its own kind, from 1.
  std::size_t fileVersion = 0;   ///< Which content state.json had as the call was made.
};

/// An undisturbed story: every platform call, and every content that state.json had.
struct Trace {
  std::vector<TracedCall> calls;  ///< Call number k is element k - 1.
  std::vector<std::optional<std::string>> fileVersions;
  std::vector<std::string> unmet;  ///< What the story itself found missing.
  std::uint64_t journalHash = 0;
};
Trace traceStory(const Story& story);

/// One case of a sweep: a story with one thing going wrong at one call.
struct Case {
  std::uint64_t k = 0;
  std::string fault;       ///< The kind of disturbance, by the name that KORVEL_FAULT takes.
  std::uint64_t seed = 1;  ///< Of the world; decides what a power loss takes along.
};

/// What the environment asks for. Without it, a sweep takes so many calls of a story as its budget
/// allows, evenly spread, and with KORVEL_FULL every one.
struct Selection {
  std::optional<std::string> story;  ///< KORVEL_STORY: this story only.
  std::optional<std::uint64_t> k;    ///< KORVEL_K: this call only.
  std::optional<std::string> fault;  ///< KORVEL_FAULT: this disturbance only.
  bool full = false;                 ///< KORVEL_FULL=1: every call.
};
const Selection& selection();

/// The calls to disturb, of `total`, about `budget` of them.
std::vector<std::uint64_t> chosenCalls(std::uint64_t total, std::uint64_t budget);

/// Runs the cases of one test: counts them, reports those that find something (the first few in
/// full, with the journal's end and the command that repeats the case), and sets the property
/// "runs" of the current test.
class Sweep {
 public:
  /// `testName` as the filter of the test program takes it, "*KillSweep.*".
  Sweep(const Story& subject, std::string testName);
  ~Sweep();
  Sweep(const Sweep&) = delete;
  Sweep& operator=(const Sweep&) = delete;

  /// `body` plays the case on a fresh stage. An exception out of it is a finding.
  void run(const Case& which, const std::function<void(Stage&, Findings&)>& body);
  /// False: KORVEL_FAULT asks for another one.
  static bool wants(std::string_view fault);
  /// True once so many cases failed that further reports would only repeat them.
  [[nodiscard]] bool enough() const { return failures >= 3; }

 private:
  void report(const Case& which, Stage* stage, const Findings& findings);

  const Story& story;
  std::string filter;
  std::uint64_t runs = 0;
  std::uint64_t failures = 0;
};

}  // namespace sweeps
