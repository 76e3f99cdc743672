// Plays one scenario of the gallery twice; both runs must meet its expectations and be alike, and
// the page that shows one must be small enough to be sent to somebody.
#include <fmt/format.h>

#include <cstdio>
#include <exception>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Scenarios/InProcessStage.h"
#include "VirtualMac/Scenarios/ScenarioRun.h"
#include "VirtualMac/Viewer/TraceFile.h"

namespace {

constexpr std::size_t largestPage = 1'000'000;

virtualmac::ScenarioOutcome play(const virtualmac::Scenario& scenario) {
  virtualmac::InProcessStage stage(scenario);
  return virtualmac::playScenario(scenario, stage,
                                  "virtual-mac run " + scenario.file + " --in-process");
}

std::size_t pageSize(const virtualmac::Scenario& scenario,
                     const virtualmac::ScenarioOutcome& outcome) {
  virtualmac::TraceRun run;
  run.title = scenario.name;
  run.head = outcome.head;
  run.lines = outcome.lines;
  run.story = virtualmac::TraceStory{
      scenario.file, virtualmac::readTextFile(scenario.file).value_or(std::string())};
  return virtualmac::traceHTML({run}).size();
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
  const std::size_t page = pageSize(*scenario, first);
  fmt::print("{}: {} expectations held over {}; its page has {} bytes\n", scenario->name,
             first.expectations, virtualmac::timelineClock(first.virtualSeconds), page);
  if (page >= largestPage) fmt::print(stderr, "{}: the page is too large\n", file);
  return first.expectations > 0 && page < largestPage ? 0 : 1;
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
