#include "VirtualMac/Tools/RunCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "VirtualMac/Scenarios/InProcessStage.h"
#include "VirtualMac/Scenarios/ScenarioRun.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/ProcessStage.h"

namespace virtualmac {

namespace {

struct Choices {
  std::vector<std::string> files;
  std::string timeline;
  bool inProcess = false;
  bool processes = false;
  double speed = 600;
  bool journal = false;
  bool asJSON = false;
};

int failed(const Choices& choices, const std::string& text) {
  return complain("virtual-mac", choices.asJSON, text, exitFailed);
}

bool writeTimeline(const std::string& file, const Timeline& timeline) {
  std::ofstream stream(file, std::ios::binary);
  stream << timelineSVG(timeline);
  stream.flush();
  return static_cast<bool>(stream);
}

void tell(const Scenario& scenario, const ScenarioOutcome& outcome, bool asJSON) {
  if (asJSON) {
    const nlohmann::ordered_json object = {{"ok", outcome.passed},
                                           {"scenario", scenario.name},
                                           {"expectations", outcome.expectations},
                                           {"seconds", outcome.virtualSeconds},
                                           {"report", outcome.report}};
    fmt::print("{}\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  } else if (outcome.passed) {
    fmt::print("passed  {}: {} expectations held over {}\n", scenario.name, outcome.expectations,
               timelineClock(outcome.virtualSeconds));
  } else {
    fmt::print("FAILED  {}\n{}", scenario.name, outcome.report);
  }
  std::fflush(stdout);
}

/// One file; an exit code.
int play(const std::string& file, const Choices& choices) {
  const auto scenario = loadScenario(file);
  if (!scenario) {
    // One line a defect, each beginning with its place.
    if (choices.asJSON) return complain("virtual-mac", true, scenario.error(), exitUsage);
    fmt::print(stderr, "{}", scenario.error());
    return exitUsage;
  }
  std::unique_ptr<Stage> stage;
  if (choices.processes) {
    stage = std::make_unique<ProcessStage>(*scenario, choices.speed);
  } else {
    stage = std::make_unique<InProcessStage>(*scenario);
  }
  if (choices.journal) {
    stage->journal().addListener(
        [](const Journal::Entry& entry) { fmt::print("{}\n", journalLine(entry)); });
  }
  const std::string how =
      choices.processes ? fmt::format(" --processes --speed {:g}", choices.speed) : " --in-process";
  const ScenarioOutcome outcome =
      ScenarioRun(*scenario, *stage, fmt::format("virtual-mac run {}{}", file, how)).run();
  tell(*scenario, outcome, choices.asJSON);
  if (!choices.timeline.empty() && !writeTimeline(choices.timeline, outcome.timeline))
    return failed(choices, choices.timeline + " cannot be written");
  return outcome.passed ? exitDone : exitFailed;
}

int playAll(const Choices& choices) {
  if (choices.files.size() > 1 && !choices.timeline.empty())
    return complain("virtual-mac", choices.asJSON, "--timeline draws one scenario, not several",
                    exitUsage);
  int worst = exitDone;
  for (const std::string& file : choices.files) {
    try {
      worst = std::max(worst, play(file, choices));
    } catch (const std::exception& failure) {
      worst = std::max(worst, failed(choices, file + ": " + failure.what()));
    }
  }
  return worst;
}

}  // namespace

void addRun(CLI::App& program, std::function<int()>& chosen) {
  const auto choices = std::make_shared<Choices>();
  CLI::App* command = program.add_subcommand("run", "Play scenarios and say how they went");
  command->add_option("files", choices->files, "Scenario files (YAML)")->required();
  CLI::Option* here = command->add_flag("--in-process", choices->inProcess,
                                        "In this process and in virtual time (the default)");
  CLI::Option* processes = command->add_flag("--processes", choices->processes,
                                             "With the built helper and clients as real processes");
  processes->excludes(here);
  command
      ->add_option("--speed", choices->speed,
                   "Virtual seconds in a real one, where nothing is near; for --processes")
      ->capture_default_str()
      ->check(numberBetween(1, 10000))
      ->needs(processes);
  command->add_option("--timeline", choices->timeline, "Draw the run into this SVG file");
  command->add_flag("--journal", choices->journal, "Print what happens, as it happens");
  command->callback([choices, &program, &chosen] {
    choices->asJSON = program.get_option("--json")->as<bool>();
    chosen = [choices] { return playAll(*choices); };
  });
}

}  // namespace virtualmac
