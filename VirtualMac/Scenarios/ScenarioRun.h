#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Scenarios/Scenario.h"
#include "VirtualMac/Scenarios/Stage.h"
#include "VirtualMac/Timeline/Timeline.h"

namespace virtualmac {

/// How a scenario went.
struct ScenarioOutcome {
  bool passed = false;
  bool stopped = false;  ///< By the onlooker, before its end; it did not pass.
  std::string report;  ///< Empty when it passed; else what, where, when, and the journal around it.
  double virtualSeconds = 0;
  std::uint64_t journalHash = 0;
  std::size_t expectations = 0;  ///< How many were judged to hold.
  Timeline timeline;
};

/// Called with the virtual time after each piece of work. When it returns the name of somebody, the
/// run stops there.
using Onlooker = std::function<std::optional<std::string>(double now)>;

/// Plays one scenario on one stage, and stops at the first expectation that fails.
///
/// A step's `given` is judged before anything is done, and its `expect` once the step is done: its
/// requests were answered and nothing more is due at that moment. Everything else is watched:
/// judged after each piece of work, and at its deadline.
class ScenarioRun {
 public:
  /// `command` runs the scenario again; it ends the report of a failure.
  ScenarioRun(const Scenario& played, Stage& place, std::string command, Onlooker looking = {});
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
    bool stopped = false;  ///< Nothing went wrong: the onlooker ended the run.
  };
  /// The journal's listener writes here. It outlives the run, as the journal may.
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
  /// Keeps the first failure only. Errors while the run is being stopped are no failure.
  void fail(int line, std::string text);
  /// Calls the onlooker; true: the run is over, stopped or failed.
  bool isOver();
  [[nodiscard]] std::string report() const;

  const Scenario& scenario;
  Stage& stage;
  std::string rerun;
  Onlooker onlooker;
  std::shared_ptr<Ears> ears;
  std::vector<Watch> watches;
  std::optional<Failure> failure;
  std::size_t held = 0;
  std::size_t heardUpTo = 0;
  int stepLine = 1;           ///< Of the latest step that began.
  std::size_t stepBegan = 0;  ///< Index in the ears where the latest step with actions began.
  std::optional<TimelineBuilder> timeline;
};

}  // namespace virtualmac
