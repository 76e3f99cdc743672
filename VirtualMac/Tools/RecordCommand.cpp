#include "VirtualMac/Tools/RecordCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "VirtualMac/Scenarios/Recorder.h"
#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/JSONLine.h"
#include "VirtualMac/Tools/JournalOption.h"

namespace virtualmac {

namespace {

struct RecordChoices {
  std::string root;
  std::string journal;
  std::string file;
  bool asJSON = false;
};

bool writeText(const std::string& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  stream.close();
  return !stream.fail();
}

/// One object: the story is in it if it has no file.
void tellJSON(const RecordChoices& choices, const Recording& recording) {
  nlohmann::ordered_json untold = nlohmann::ordered_json::array();
  for (const Unsayable& each : recording.unsayable)
    untold.push_back({{"seconds", each.time}, {"line", each.line}, {"text", each.text}});
  nlohmann::ordered_json object{{"ok", recording.unsayable.empty()}};
  if (!recording.unsayable.empty())
    object["error"] = fmt::format("a story cannot say all of it: {} lines are left out",
                                  recording.unsayable.size());
  object["untold"] = untold;
  if (choices.file.empty())
    object["story"] = recording.story;
  else
    object["file"] = choices.file;
  printJSON(object);
}

int recordStory(const RecordChoices& choices) {
  const auto journal = chosenJournal(choices.root, choices.journal);
  if (!journal) return complain("virtual-mac", choices.asJSON, journal.error(), exitFailed);
  const Recording recording = record(*journal);
  if (!choices.file.empty() && !writeText(choices.file, recording.story))
    return complain("virtual-mac", choices.asJSON, choices.file + " cannot be written", exitFailed);
  if (choices.asJSON) {
    tellJSON(choices, recording);
  } else {
    if (choices.file.empty()) fmt::print("{}", recording.story);
    for (const Unsayable& each : recording.unsayable) {
      fmt::print(stderr, "{}:{}: at {}: a story cannot say this: {}\n", journal->file, each.line,
                 journalTime(each.time), each.text);
    }
  }
  return recording.unsayable.empty() ? exitDone : exitFailed;
}

}  // namespace

void addRecord(CLI::App& program, std::function<int()>& chosen) {
  const auto choices = std::make_shared<RecordChoices>();
  CLI::App* command = program.add_subcommand(
      "record",
      "Make a scenario of the journal, which does the same again and expects what was seen. "
      "Status 1: it tells something that no scenario can, named on standard error");
  command->add_option("file", choices->file, "YAML file to write; default: standard output")
      ->type_name("FILE");
  addJournalOption(*command, choices->journal);
  command->callback([choices, &program, &chosen] {
    choices->root = program.get_option("--root")->as<std::string>();
    choices->asJSON = program.get_option("--json")->as<bool>();
    chosen = [choices] { return recordStory(*choices); };
  });
}

}  // namespace virtualmac
