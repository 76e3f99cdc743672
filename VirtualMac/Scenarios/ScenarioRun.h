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
  bool stopped = false;  ///< By somebody, before it was over; then it did not pass.
  std::string report;  ///< Empty when it passed; else what, where, when, and the journal around it.
  double virtualSeconds = 0;
  std::uint64_t journalHash = 0;
  std::size_t expectations = 0;  ///< How many were judged to hold.
  Timeline timeline;
};

/// Looks on while a scenario plays: is told the virtual time after each piece of work. The name of
/// somebody, when it returns one, stops the run there.
using Onlooker = std::function<std::optional<std::string>(double now)>;

/// Plays one scenario on one stage, and stops at the first expectation that fails.
///
/// A step is done when its requests were answered and nothing more is due at that moment; only then
/// its `expect` is judged; its `given` before anything is done. Everything else is watched: judged
/// after each piece of work, and at its deadline.
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
    bool stopped = false;  ///< Nothing went wrong: somebody wanted it to end.
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
  /// The first failure counts. What breaks while the run is being stopped is none.
  void fail(int line, std::string text);
  /// Lets the onlooker look; true: the run is over, stopped or failed.
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
  std::size_t stepBegan = 0;  ///< Where in the ears the latest step with actions began.
  std::optional<TimelineBuilder> timeline;
};

}  // namespace virtualmac
