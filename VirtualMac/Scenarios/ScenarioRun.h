#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Scenarios/Scenario.h"
#include "VirtualMac/Scenarios/Stage.h"
#include "VirtualMac/Tools/Timeline.h"

namespace virtualmac {

/// How a scenario went.
struct ScenarioOutcome {
  bool passed = false;
  std::string report;  ///< Empty when it passed; else what, where, when, and the journal around it.
  double virtualSeconds = 0;
  std::uint64_t journalHash = 0;
  std::size_t expectations = 0;  ///< How many were judged to hold.
  Timeline timeline;
};

/// Plays one scenario on one stage, and stops at the first expectation that fails.
///
/// A step is done when its requests were answered and nothing more is due at that moment; only then
/// its `expect` is judged; its `given` before anything is done. Everything else is watched: judged
/// after each piece of work, and at its deadline.
class ScenarioRun {
 public:
  /// `command` runs the scenario again; it ends the report of a failure.
  ScenarioRun(const Scenario& played, Stage& place, std::string command);
  ~ScenarioRun();
  ScenarioRun(const ScenarioRun&) = delete;
  ScenarioRun& operator=(const ScenarioRun&) = delete;

  ScenarioOutcome run();

 private:
  enum class Watching : std::uint8_t { Never, Always, Within, Holds };
  struct Watch {
    Watching kind{};
    Expectation expectation;
    double deadline = 0;
    bool waiting = false;  ///< Its step is not done yet: it hears, but is not judged.
    bool over = false;
  };
  struct Failure {
    int line = 0;
    double time = 0;
    std::string text;
  };
  /// What the journal's listener writes to; it outlives the run, as the journal may.
  struct Ears;

  void setUp();
  void play(const Step& step);
  void perform(const Action& action, int line, const ExpectedReply& reply);
  void judgeReply(const Action& action, int line, const ExpectedReply& reply,
                  const std::optional<Answer>& answer);
  void judgeExpectations(const std::vector<Expectation>& expectations);
  void startWatching(const Step& step);
  /// Lets time pass until `moment`, stopping at the deadlines on the way.
  void advance(double moment);
  /// Judges what is watched; true: something failed.
  bool judgeWatches(bool atDeadline);
  void judge(Watch& watch, bool atDeadline);
  void hear();
  [[nodiscard]] Facts facts();
  void fail(int line, std::string text);
  [[nodiscard]] std::string report() const;

  const Scenario& scenario;
  Stage& stage;
  std::string rerun;
  std::shared_ptr<Ears> ears;
  std::vector<Watch> watches;
  std::optional<Failure> failure;
  std::size_t held = 0;
  std::size_t heardUpTo = 0;
  std::size_t stepBegan = 0;  ///< Where in the ears the latest step with actions began.
  std::optional<TimelineBuilder> timeline;
};

}  // namespace virtualmac
