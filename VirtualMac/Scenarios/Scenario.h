#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Scenarios/Action.h"
#include "VirtualMac/Scenarios/Condition.h"

namespace virtualmac {

struct JournalHead;

/// An action with the line it stands on.
struct ToldAction {
  Action action;
  int line = 0;
};

/// A condition with the line it stands on.
struct Expectation {
  Condition condition;
  int line = 0;
  double seconds = 0;  ///< For "within" and "holds".
};

/// How the requests of a step are to be answered.
struct ExpectedReply {
  std::optional<Answer::Kind> kind = Answer::Kind::Ok;  ///< None: no answer is waited for.
  std::optional<std::int64_t> code;
  std::optional<std::string> text;  ///< The error's description contains this.
  int line = 0;
};

/// The actions of one moment, and what is expected from then on.
struct Step {
  double time = 0;  ///< Seconds from the start.
  int line = 0;
  std::vector<ToldAction> actions;
  ExpectedReply reply;
  std::vector<Expectation> given;   ///< Holds before anything is done.
  std::vector<Expectation> expect;  ///< Holds once the step is done.
  std::vector<Expectation> within;  ///< Comes true within a time.
  std::vector<Expectation> holds;   ///< Comes true at once and stays so for a time.
};

/// A story about a machine: how it starts, what happens, what is expected. Read from YAML:
///
///   name: Lunch break
///   description: Unplugging above the limit changes nothing.
///   profile: newer-keys
///   start:
///     battery: 80
///     adapter: on
///   steps:
///     - at: 00:00:05
///       do: [connect, set-limit 80]
///       within: 10s gate paused
///     - at: 00:42
///       do: adapter off
///       holds: 30m gate paused
///     - at: 01:30
///       given: [battery < 80, saved chargeLimit=80]
///       do: clear-limit
///       expect: gate charging
///   never: CHIE=08 while asleep
///
/// Keys of the whole: name, description, profile, seed, start, steps, never, always, ends. Of the
/// start: the deeds with a value (battery, adapter, ...), faults, saved-state, helper-version,
/// restart-after-crash. Of a step: at or after, given, do, reply, expect, within, holds; or at,
/// repeat, every, steps. Lists may be single values.
struct Scenario {
  std::string file;
  std::string name;
  std::string description;
  std::string profile = "newer-keys";
  std::uint64_t seed = 1;
  std::vector<ToldAction> start;  ///< Put the machine into its first state.
  std::optional<std::string> savedState;
  std::optional<std::string> helperVersion = "2.0.0";
  bool restartAfterCrash = false;
  std::vector<Step> steps;  ///< In the order of time.
  std::vector<Expectation> never;
  std::vector<Expectation> always;
  double end = 0;  ///< When it is over.
};

/// The head of the saved journal of a scenario's run, whose profile loads. `speed`: none in virtual
/// time.
JournalHead journalHead(const Scenario& scenario, std::optional<double> speed);

/// Reads a scenario file. The error has a line for every defect: `file:line: what, what is
/// allowed`.
std::expected<Scenario, std::string> loadScenario(const std::string& file);
/// The same from text; `file` stands in the errors.
std::expected<Scenario, std::string> parseScenario(const std::string& text,
                                                   const std::string& file);

}  // namespace virtualmac
