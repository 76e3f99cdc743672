#include "VirtualMac/Tools/TraceCommand.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/JSONLine.h"
#include "VirtualMac/Tools/JournalOption.h"
#include "VirtualMac/Viewer/TraceFile.h"

namespace virtualmac {

namespace {

struct TraceChoices {
  std::string file;
  std::string journal;
  std::string beside;
  std::string title;
};

TraceRun runOf(const SavedJournal& journal, const std::string& title) {
  TraceRun run;
  run.title = title;
  if (journal.head) run.head = journal.head->line();
  for (const Journal::Entry& entry : journal.entries) run.lines += journalLine(entry) + '\n';
  run.end = journal.end.value_or(journal.entries.back().time);
  return run;
}

/// Two runs are told apart by their files, one by its kind of Mac.
std::string usualTitle(const SavedJournal& journal, bool isOneOfTwo) {
  if (!isOneOfTwo && journal.head) return journal.head->profile;
  return std::filesystem::path(journal.file).filename().string();
}

int write(const std::string& root, bool asJSON, const TraceChoices& choices) {
  const auto failed = [asJSON](const std::string& text) {
    return complain("virtual-mac", asJSON, text, exitFailed);
  };
  const bool isPair = !choices.beside.empty();
  const auto journal = chosenJournal(root, choices.journal);
  if (!journal) return failed(journal.error());
  std::vector<TraceRun> runs{
      runOf(*journal, choices.title.empty() ? usualTitle(*journal, isPair) : choices.title)};
  if (isPair) {
    const auto other = SavedJournal::read(choices.beside);
    if (!other) return failed(other.error());
    runs.push_back(runOf(*other, usualTitle(*other, true)));
  }
  const auto problem = writeTrace(choices.file, runs);
  if (problem) return failed(*problem);
  if (asJSON) printJSON({{"ok", true}, {"file", choices.file}});
  return exitDone;
}

}  // namespace

void addTrace(CLI::App& program, std::function<int()>& chosen) {
  const auto choices = std::make_shared<TraceChoices>();
  CLI::App* command =
      program.add_subcommand("trace", "Write the journal as a page that any browser opens");
  command->add_option("file", choices->file, "HTML file to write")->required()->type_name("FILE");
  addJournalOption(*command, choices->journal);
  command->add_option("--beside", choices->beside, "Another saved journal, to compare with")
      ->check(notEmpty())
      ->type_name("FILE");
  command->add_option("--title", choices->title, "The run's title (default: its kind of Mac)")
      ->check(notEmpty());
  command->callback([choices, &program, &chosen] {
    const std::string root = program.get_option("--root")->as<std::string>();
    const bool asJSON = program.get_option("--json")->as<bool>();
    chosen = [choices, root, asJSON] { return write(root, asJSON, *choices); };
  });
}

}  // namespace virtualmac
