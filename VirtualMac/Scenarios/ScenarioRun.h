#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "VirtualMac/Scenarios/Scenario.h"
#include "VirtualMac/Scenarios/Stage.h"
#include "VirtualMac/Timeline/Timeline.h"

namespace virtualmac {

/// An expectation that did not hold, or the end of a run that was stopped.
struct ScenarioFailure {
  int line = 0;  ///< Of the scenario's file.
  double time = 0;
  std::string text;
};

/// How a scenario went.
struct ScenarioOutcome {
  bool passed = false;
  bool stopped = false;  ///< By the onlooker, before its end; it did not pass.
  std::string report;  ///< Empty when it passed; else what, where, when, and the journal around it.
  double virtualSeconds = 0;
  std::uint64_t journalHash = 0;
  std::size_t expectations = 0;  ///< How many were judged to hold.
  Timeline timeline;
  std::string head;   ///< The machine at the story's start, as a journal's head tells it.
  std::string lines;  ///< The journal from there on.
  std::optional<ScenarioFailure> failure;
};

/// Called with the virtual time after each piece of work. When it returns the name of somebody, the
/// run stops there.
using Onlooker = std::function<std::optional<std::string>(double now)>;

/// Plays a scenario on a stage, and stops at the first expectation that fails. `command` plays it
/// again; it ends the report of a failure.
///
/// A step's `given` is judged before anything is done, and its `expect` once the step is done: its
/// requests were answered and nothing more is due at that moment. Everything else is watched:
/// judged after each piece of work, and at its deadline.
ScenarioOutcome playScenario(const Scenario& scenario, Stage& stage, const std::string& command,
                             const Onlooker& onlooker = {});

}  // namespace virtualmac
