#pragma once

#include <expected>
#include <string>

#include "VirtualMac/Machine/SavedJournal.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace virtualmac {

/// Adds `--journal FILE` to a command that reads a journal.
CLI::Option* addJournalOption(CLI::App& command, std::string& file);

/// The journal in `file`. With none named it is that of the root directory, whose machine runs or
/// ran there last; `root` is as the command line has it. The error names the file.
std::expected<SavedJournal, std::string> chosenJournal(const std::string& root,
                                                       const std::string& file);

}  // namespace virtualmac
