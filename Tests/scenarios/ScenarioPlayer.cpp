// Plays one scenario of the gallery twice; both runs must meet its expectations and be alike.
#include <fmt/format.h>

#include <cstdio>
#include <exception>

#include "VirtualMac/Scenarios/InProcessStage.h"
#include "VirtualMac/Scenarios/ScenarioRun.h"

namespace {

virtualmac::ScenarioOutcome play(const virtualmac::Scenario& scenario) {
  virtualmac::InProcessStage stage(scenario);
  return virtualmac::playScenario(scenario, stage,
                                  "virtual-mac run " + scenario.file + " --in-process");
}

int playFile(const char* file) {
  const auto scenario = virtualmac::loadScenario(file);
  if (!scenario) {
    fmt::print(stderr, "{}", scenario.error());
    return 1;
  }
  const virtualmac::ScenarioOutcome first = play(*scenario);
  if (!first.passed) {
    fmt::print(stderr, "{}", first.report);
    return 1;
  }
  const virtualmac::ScenarioOutcome second = play(*scenario);
  if (second.journalHash != first.journalHash) {
    fmt::print(stderr, "{}: two runs have different journals: {:016x} and {:016x}\n", file,
               first.journalHash, second.journalHash);
    return 1;
  }
  fmt::print("{}: {} expectations held over {}\n", scenario->name, first.expectations,
             virtualmac::timelineClock(first.virtualSeconds));
  return first.expectations > 0 ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    fmt::print(stderr, "usage: scenario_player FILE\n");
    return 2;
  }
  try {
    return playFile(arguments[1]);
  } catch (const std::exception& failure) {
    fmt::print(stderr, "{}: {}\n", arguments[1], failure.what());
    return 1;
  }
}
