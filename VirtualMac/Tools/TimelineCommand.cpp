#include "VirtualMac/Tools/TimelineCommand.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Timeline/Timeline.h"
#include "VirtualMac/Tools/CommandLine.h"

namespace virtualmac {

namespace {

struct Choices {
  std::string file;
  std::string title = "A virtual Mac";
  double from = 0;
  std::optional<double> percent;
};

/// Half full when no level is told.
double firstLevel(const std::vector<Journal::Entry>& entries) {
  for (const Journal::Entry& entry : entries) {
    if (const std::optional<int> percent = batteryLevelIn(entry)) return *percent;
  }
  return 50;
}

int draw(const std::string& root, bool asJSON, const Choices& choices) {
  const auto failed = [asJSON](const std::string& text) {
    return complain("virtual-mac", asJSON, text, exitFailed);
  };
  const RootDirectory place = RootDirectory::at(root);
  if (const auto problem = place.distrust()) return failed(*problem);
  const std::string journal = place.journal();
  std::ifstream lines(journal);
  if (!lines) return failed(journal + " cannot be read");
  std::vector<Journal::Entry> entries;
  for (std::string line; std::getline(lines, line);) {
    if (std::optional<Journal::Entry> entry = journalEntryFrom(line)) {
      entries.push_back(*std::move(entry));
    }
  }
  // The entries before the picture's first moment give the state that it starts from.
  TimelineState start;
  start.percent = std::round(choices.percent.value_or(firstLevel(entries)));
  start.adapterConnected = true;
  TimelineBuilder before("", 0, start);
  std::optional<TimelineBuilder> shown;
  double end = choices.from;
  for (const Journal::Entry& entry : entries) {
    if (!shown && entry.time >= choices.from) {
      shown.emplace(choices.title, choices.from, before.finish(0).samples.back().state);
    }
    (shown ? *shown : before).add(entry);
    end = entry.time;
  }
  if (!shown) return failed(journal + " tells nothing from then on");
  if (!writeTimeline(choices.file, shown->finish(end)))
    return failed(choices.file + " cannot be written");
  return exitDone;
}

}  // namespace

void addTimeline(CLI::App& program, std::function<int()>& chosen) {
  const auto choices = std::make_shared<Choices>();
  CLI::App* command = program.add_subcommand("timeline", "Draw the journal as a picture");
  command->add_option("file", choices->file, "SVG file to write")->required();
  command->add_option("--title", choices->title, "The picture's title")->capture_default_str();
  command->add_option("--from", choices->from, "First virtual second that is shown")
      ->check(numberBetween(0, longestWaitSeconds));
  command
      ->add_option("--percent", choices->percent,
                   "Charge at the start; default: the first level that is told")
      ->check(numberBetween(0, 100));
  command->callback([choices, &program, &chosen] {
    const std::string root = program.get_option("--root")->as<std::string>();
    const bool asJSON = program.get_option("--json")->as<bool>();
    chosen = [choices, root, asJSON] { return draw(root, asJSON, *choices); };
  });
}

}  // namespace virtualmac
