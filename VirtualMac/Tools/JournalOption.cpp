#include "VirtualMac/Tools/JournalOption.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "VirtualMac/Server/JournalArchive.h"
#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Tools/CommandLine.h"

namespace virtualmac {

CLI::Option* addJournalOption(CLI::App& command, std::string& file) {
  return command
      .add_option("--journal", file,
                  fmt::format("A saved journal in place of the machine's own; the last {} are in "
                              "journals/NNNN.journal of its directory",
                              keptJournals))
      ->check(notEmpty())
      ->type_name("FILE");
}

std::expected<SavedJournal, std::string> chosenJournal(const std::string& root,
                                                       const std::string& file) {
  if (!file.empty()) return SavedJournal::read(file);
  const RootDirectory place = RootDirectory::at(root);
  if (auto problem = place.distrust()) return std::unexpected(*std::move(problem));
  auto journal = SavedJournal::read(place.journal());
  if (!journal) return std::unexpected(journal.error() + place.origin());
  return journal;
}

}  // namespace virtualmac
