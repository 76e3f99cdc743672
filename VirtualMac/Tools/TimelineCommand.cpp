#include "VirtualMac/Tools/TimelineCommand.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Timeline/Timeline.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/JSONLine.h"
#include "VirtualMac/Tools/JournalOption.h"

namespace virtualmac {

namespace {

struct TimelineChoices {
  std::string file;
  std::string journal;
  std::string title = "A virtual Mac";
  double from = 0;
  std::optional<double> percent;
};

/// The state that a head tells, or the usual one, half full when no level is told.
TimelineState startOf(const SavedJournal& journal, const std::optional<double>& percent) {
  TimelineState start;
  start.adapterConnected = true;
  std::optional<double> level = percent;
  if (journal.head) {
    const JournalHead::Start& told = journal.head->start;
    start.adapterConnected = told.adapterConnected;
    start.lidClosed = told.lid == "closed";
    if (!level) level = told.batteryPercent;
  }
  for (const Journal::Entry& entry : journal.entries) {
    if (!level) level = batteryLevelIn(entry);
  }
  start.percent = std::round(level.value_or(50));
  return start;
}

int draw(const std::string& root, bool asJSON, const TimelineChoices& choices) {
  const auto failed = [asJSON](const std::string& text) {
    return complain("virtual-mac", asJSON, text, exitFailed);
  };
  const auto journal = chosenJournal(root, choices.journal);
  if (!journal) return failed(journal.error());
  const std::vector<Journal::Entry>& entries = journal->entries;
  // The entries before the picture's first moment give the state that it starts from.
  TimelineBuilder before("", 0, startOf(*journal, choices.percent));
  std::optional<TimelineBuilder> shown;
  double end = choices.from;
  for (const Journal::Entry& entry : entries) {
    if (!shown && entry.time >= choices.from) {
      shown.emplace(choices.title, choices.from, before.finish(0).samples.back().state);
    }
    (shown ? *shown : before).add(entry);
    end = entry.time;
  }
  if (!shown) return failed(journal->file + " tells nothing from then on");
  if (!writeTimeline(choices.file, shown->finish(end)))
    return failed(choices.file + " cannot be written");
  if (asJSON) printJSON({{"ok", true}, {"file", choices.file}});
  return exitDone;
}

}  // namespace

void addTimeline(CLI::App& program, std::function<int()>& chosen) {
  const auto choices = std::make_shared<TimelineChoices>();
  CLI::App* command = program.add_subcommand("timeline", "Draw the journal as a picture");
  command->add_option("file", choices->file, "SVG file to write")->required()->type_name("FILE");
  command->add_option("--title", choices->title, "The picture's title")->capture_default_str();
  command->add_option("--from", choices->from, "First virtual second that is shown")
      ->check(numberBetween(0, longestWaitSeconds));
  command
      ->add_option("--percent", choices->percent,
                   "Charge at the start; default: what the journal tells")
      ->check(numberBetween(0, 100));
  addJournalOption(*command, choices->journal);
  command->callback([choices, &program, &chosen] {
    const std::string root = program.get_option("--root")->as<std::string>();
    const bool asJSON = program.get_option("--json")->as<bool>();
    chosen = [choices, root, asJSON] { return draw(root, asJSON, *choices); };
  });
}

}  // namespace virtualmac
