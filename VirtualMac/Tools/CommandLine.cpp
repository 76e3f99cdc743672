#include "VirtualMac/Tools/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>
#include <string>

#include "VirtualMac/Tools/MachineCommands.h"
#include "VirtualMac/Tools/Nearest.h"

namespace virtualmac {

namespace {

/// The first word that is neither an option nor an option's value must be a command.
std::optional<std::string> unknownCommand(const CLI::App& program,
                                          const std::vector<const char*>& optionsWithValue,
                                          int argc, char** argv) {
  for (int index = 1; index < argc; ++index) {
    const std::string word = argv[index];
    if (std::find(optionsWithValue.begin(), optionsWithValue.end(), word) !=
        optionsWithValue.end()) {
      ++index;
    } else if (!word.starts_with('-')) {
      std::vector<std::string> names;
      for (const CLI::App* each : program.get_subcommands(nullptr))
        names.push_back(each->get_name());
      if (std::find(names.begin(), names.end(), word) != names.end()) return std::nullopt;
      return unknownWord("command", word, names);
    }
  }
  return std::nullopt;
}

}  // namespace

int runCommandLine(CLI::App& program, const std::vector<const char*>& optionsWithValue, int argc,
                   char** argv, const std::function<int()>& chosen) {
  if (const auto problem = unknownCommand(program, optionsWithValue, argc, argv)) {
    fmt::print(stderr, "{}: {}\n", program.get_name(), *problem);
    return exitUsage;
  }
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? exitDone : exitUsage;
  }
  return chosen();
}

}  // namespace virtualmac
