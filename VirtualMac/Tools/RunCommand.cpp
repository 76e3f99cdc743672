#include "VirtualMac/Tools/RunCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <expected>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Scenarios/InProcessStage.h"
#include "VirtualMac/Scenarios/ProcessStage.h"
#include "VirtualMac/Scenarios/ScenarioRun.h"
#include "VirtualMac/Tools/Colour.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/HelperProgram.h"
#include "VirtualMac/Tools/JSONLine.h"
#include "VirtualMac/Tools/JournalReader.h"
#include "VirtualMac/Tools/JournalSaver.h"
#include "VirtualMac/Tools/ProgressLine.h"
#include "VirtualMac/Tools/RunReport.h"
#include "VirtualMac/Tools/StopSignals.h"
#include "VirtualMac/Viewer/TraceFile.h"

namespace virtualmac {

namespace {

struct RunChoices {
  std::vector<std::string> files;
  std::string timeline;
  std::string trace;
  bool inProcess = false;
  bool processes = false;
  bool tin = false;
  double speed = 600;
  double linger = 0;
  bool journal = false;
  std::string savedJournal;
  std::string junit;
  bool checked = false;
  bool asJSON = false;
};

/// The emulated program takes so many times the real time of this build's own helper.
constexpr double emulatedSlowness = 5;

int failed(const RunChoices& choices, const std::string& text) {
  return complain("virtual-mac", choices.asJSON, text, exitFailed);
}

void tell(const Scenario& scenario, const ScenarioOutcome& outcome, bool asJSON) {
  if (asJSON) {
    nlohmann::ordered_json object{{"ok", outcome.passed}};
    if (!outcome.passed) object["error"] = outcome.failure ? outcome.failure->text : "stopped";
    object["scenario"] = scenario.name;
    object["expectations"] = outcome.expectations;
    object["seconds"] = outcome.virtualSeconds;
    object["stopped"] = outcome.stopped;
    object["report"] = outcome.report;
    printJSON(object);
  } else if (outcome.passed) {
    fmt::print("passed  {}: {} expectations held over {}\n", scenario.name, outcome.expectations,
               timelineClock(outcome.virtualSeconds));
  } else if (outcome.stopped) {
    fmt::print("{} {}: {} expectations had held\n{}", toned(Tone::Warning, "STOPPED", stdout),
               scenario.name, outcome.expectations, outcome.report);
  } else {
    fmt::print("{}\n{}", toned(Tone::Fault, "FAILED  " + scenario.name, stdout), outcome.report);
  }
  std::fflush(stdout);
}

/// The named scenario files; a directory stands for its `*.yaml` in the order of their names. The
/// error names a directory that holds none or cannot be read.
std::expected<std::vector<std::string>, std::string> chosenFiles(
    const std::vector<std::string>& named) {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  for (const std::string& name : named) {
    std::error_code error;
    if (!fs::is_directory(name, error)) {
      files.push_back(name);
      continue;
    }
    std::vector<std::string> inside;
    for (fs::directory_iterator each(name, error); !error && each != fs::directory_iterator();
         each.increment(error)) {
      const fs::path& path = each->path();
      const bool hidden = path.filename().string().starts_with('.');
      if (path.extension() == ".yaml" && !hidden) inside.push_back(path.string());
    }
    if (error) return std::unexpected(name + ": " + error.message());
    if (inside.empty()) return std::unexpected(name + " holds no *.yaml");
    std::ranges::sort(inside);
    files.insert(files.end(), inside.begin(), inside.end());
  }
  return files;
}

std::unique_ptr<Stage> stageFor(const Scenario& scenario, const RunChoices& choices,
                                const StopSignals& signals) {
  if (!choices.processes) return std::make_unique<InProcessStage>(scenario);
  const auto program = helperProgram(choices.tin);
  if (!program) throw std::runtime_error(program.error());
  const StagedHelper helper{*program, choices.tin ? emulatedSlowness : 1};
  return std::make_unique<ProcessStage>(scenario, helper, choices.speed,
                                        [&signals] { return signals.caught().has_value(); });
}

/// The words that play a story in the same way again.
std::string howPlayed(const RunChoices& choices) {
  if (!choices.processes) return " --in-process";
  return fmt::format(" --processes{} --speed {:g}", choices.tin ? " --tin" : "", choices.speed);
}

/// The page that shows a run; false: it could not be written, which was told.
bool writeTraceOf(const Scenario& scenario, const ScenarioOutcome& outcome,
                  const RunChoices& choices) {
  TraceRun run;
  run.title = scenario.name;
  run.head = outcome.head;
  run.lines = outcome.lines;
  run.end = outcome.virtualSeconds;
  if (const auto text = readTextFile(scenario.file)) run.story = TraceStory{scenario.file, *text};
  if (const auto& failure = outcome.failure)
    run.failures.push_back({failure->time, failure->line, failure->text});
  const auto problem = writeTrace(choices.trace, {run});
  if (problem) failed(choices, *problem);
  return !problem;
}

/// The last line of a failure's report. It names the page that shows the failure.
std::string whereToLook(const std::string& again, const RunChoices& choices) {
  return choices.trace.empty()
             ? fmt::format("  see it in a browser: {} --trace trace.html\n", again)
             : fmt::format("  see it in a browser: {}\n", choices.trace);
}

/// Reads a story. One that cannot be read is told with its defects: one line each, which begins
/// with its place.
std::optional<Scenario> readStory(PlayedStory& story, bool asJSON) {
  auto scenario = loadScenario(story.file);
  if (scenario) {
    story.name = scenario->name;
    return *std::move(scenario);
  }
  story.fate = Fate::Unreadable;
  story.report = scenario.error();
  story.trouble = story.report.substr(0, story.report.find('\n'));
  if (asJSON) {
    complain("virtual-mac", true, story.report, exitUsage);
  } else {
    fmt::print(stderr, "{}", story.report);
  }
  return std::nullopt;
}

/// Plays one story; `place` says which one of how many.
void play(PlayedStory& story, const std::string& place, const RunChoices& choices,
          const StopSignals& signals) {
  const auto scenario = readStory(story, choices.asJSON);
  if (!scenario) return;
  std::optional<ProgressLine> progress(std::in_place, place + scenario->name, !choices.journal);
  const auto look = [&](double now) -> std::optional<std::string> {
    progress->show(now, scenario->end);
    const std::optional<int> signal = signals.caught();
    return signal ? std::optional(signalName(*signal)) : std::nullopt;
  };
  const std::unique_ptr<Stage> stage = stageFor(*scenario, choices, signals);
  if (choices.journal) {
    stage->journal().addListener(
        [&choices](const Journal::Entry& entry) { printEntry(entry, choices.asJSON); });
  }
  const auto speed = choices.processes ? std::optional(choices.speed) : std::nullopt;
  JournalSaver saver(choices.savedJournal, *stage, *scenario, speed);
  const std::string again = fmt::format("virtual-mac run {}{}", story.file, howPlayed(choices));
  ScenarioOutcome outcome = playScenario(*scenario, *stage, again, look);
  progress.reset();
  const bool traced = choices.trace.empty() || writeTraceOf(*scenario, outcome, choices);
  if (!outcome.passed) outcome.report += whereToLook(again, choices);
  tell(*scenario, outcome, choices.asJSON);
  story.virtualSeconds = outcome.virtualSeconds;
  story.report = outcome.report;
  story.trouble = outcome.report.substr(0, outcome.report.find('\n'));
  if (outcome.passed && choices.linger > 0) {
    stage->runUntil(stage->now() + choices.linger, [&] { return signals.caught().has_value(); });
  }
  const bool saved = saver.finish(stage->now());
  if (!saved) failed(choices, choices.savedJournal + " cannot be written");
  const bool drawn = choices.timeline.empty() || writeTimeline(choices.timeline, outcome.timeline);
  if (!drawn) failed(choices, choices.timeline + " cannot be written");
  const bool written = drawn && traced && saved;
  if (outcome.passed && !written) story.trouble = "a file that was asked for cannot be written";
  story.fate = outcome.passed && written ? Fate::Passed : Fate::Failed;
  if (outcome.stopped) story.fate = Fate::Stopped;
}

std::vector<PlayedStory> playEach(const std::vector<std::string>& files, const RunChoices& choices,
                                  const StopSignals& signals) {
  using Clock = std::chrono::steady_clock;
  std::vector<PlayedStory> stories;
  for (const std::string& file : files) {
    PlayedStory& story = stories.emplace_back(PlayedStory{file});
    const std::string place =
        files.size() > 1 ? fmt::format("{}/{}  ", stories.size(), files.size()) : std::string();
    const auto began = Clock::now();
    try {
      if (!signals.caught()) play(story, place, choices, signals);
    } catch (const std::exception& failure) {
      story.fate = Fate::Failed;
      story.trouble = story.report = file + ": " + failure.what();
      failed(choices, story.trouble);
    }
    story.realSeconds = std::chrono::duration<double>(Clock::now() - began).count();
  }
  return stories;
}

int statusOf(const std::vector<PlayedStory>& stories) {
  const auto any = [&](Fate fate) {
    return std::ranges::find(stories, fate, &PlayedStory::fate) != stories.end();
  };
  if (any(Fate::Unreadable)) return exitUsage;
  return any(Fate::Failed) ? exitFailed : exitDone;
}

/// Reads the files and plays none of them.
int checkAll(const std::vector<std::string>& files, const RunChoices& choices) {
  std::vector<PlayedStory> stories;
  for (const std::string& file : files) {
    PlayedStory& story = stories.emplace_back(PlayedStory{file});
    const auto scenario = readStory(story, choices.asJSON);
    if (!scenario) continue;
    story.fate = Fate::Passed;
    const std::size_t steps = scenario->steps.size();
    if (choices.asJSON) {
      const nlohmann::ordered_json object = {
          {"ok", true}, {"file", file}, {"scenario", scenario->name}, {"steps", steps}};
      fmt::print("{}\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    } else {
      fmt::print("in order  {}: {}, {} steps\n", file, scenario->name, steps);
    }
  }
  if (files.size() > 1 && !choices.asJSON) {
    const auto good = std::ranges::count(stories, Fate::Passed, &PlayedStory::fate);
    fmt::print("{} scenarios: {} in order, {} unreadable\n", files.size(), good,
               files.size() - static_cast<std::size_t>(good));
  }
  return statusOf(stories);
}

int playAll(const RunChoices& choices) {
  const auto files = chosenFiles(choices.files);
  if (!files) return complain("virtual-mac", choices.asJSON, files.error(), exitUsage);
  if (choices.checked) return checkAll(*files, choices);
  const bool several = files->size() > 1;
  if (several && !(choices.timeline.empty() && choices.trace.empty()))
    return complain("virtual-mac", choices.asJSON,
                    "--timeline and --trace show one scenario, not several", exitUsage);
  if (several && !choices.savedJournal.empty())
    return complain("virtual-mac", choices.asJSON,
                    "--save-journal saves one scenario's journal, not several", exitUsage);
  // Among processes no second signal may end the program: it must clear away what they leave.
  std::optional<StopSignals> signals(std::in_place, !choices.processes);
  const std::vector<PlayedStory> stories = playEach(*files, choices, *signals);
  if (several && !choices.asJSON) {
    fmt::print("{}\n", totalLine(stories));
    std::fflush(stdout);
  }
  const std::string_view suite = choices.tin         ? "among processes, with the Mac's own program"
                                 : choices.processes ? "among processes"
                                                     : "in process";
  const bool reported =
      choices.junit.empty() || writeTextFile(choices.junit, junitXML(stories, suite));
  if (!reported) failed(choices, choices.junit + " cannot be written");
  const std::optional<int> signal = signals->caught();
  signals.reset();
  if (signal) return endBySignal(*signal);
  const int status = statusOf(stories);
  return status == exitDone && !reported ? exitFailed : status;
}

}  // namespace

void addRun(CLI::App& program, std::function<int()>& chosen) {
  const auto choices = std::make_shared<RunChoices>();
  CLI::App* command = program.add_subcommand("run", "Play scenarios and say how they went");
  command->add_option("files", choices->files, "Scenario files (YAML), and directories of them")
      ->required()
      ->type_name("FILE");
  CLI::Option* here = command->add_flag("--in-process", choices->inProcess,
                                        "In this process and in virtual time (the default)");
  CLI::Option* processes = command->add_flag("--processes", choices->processes,
                                             "With the built helper and clients as real processes");
  processes->excludes(here);
  command
      ->add_flag("--tin", choices->tin,
                 "The helper is the Mac's own program, emulated; for --processes")
      ->needs(processes);
  command
      ->add_option("--speed", choices->speed,
                   "Virtual seconds in a real one, where nothing is near; for --processes")
      ->capture_default_str()
      ->check(numberBetween(1, 10000))
      ->needs(processes);
  CLI::Option* check =
      command->add_flag("--check", choices->checked, "Read the files and play nothing");
  const std::array shown{
      command->add_option("--timeline", choices->timeline, "Draw the run into this SVG file")
          ->type_name("FILE"),
      command
          ->add_option("--trace", choices->trace,
                       "Write the run into this HTML file, for a browser")
          ->check(notEmpty())
          ->type_name("FILE"),
      command
          ->add_option("--linger", choices->linger,
                       "Virtual seconds that the machine runs on after a story that held")
          ->check(numberBetween(0, 3600)),
      command->add_flag("--journal", choices->journal, "Print what happens, as it happens"),
      command
          ->add_option("--save-journal", choices->savedJournal,
                       "Write what happens into this file, for --journal of the other commands")
          ->check(notEmpty())
          ->type_name("FILE"),
      command
          ->add_option("--junit", choices->junit,
                       "Write how the stories went into this XML file, for build servers")
          ->check(notEmpty())
          ->type_name("FILE"),
      here,
      processes};
  for (CLI::Option* each : shown) check->excludes(each);
  command->callback([choices, &program, &chosen] {
    choices->asJSON = program.get_option("--json")->as<bool>();
    chosen = [choices] { return playAll(*choices); };
  });
}

}  // namespace virtualmac
