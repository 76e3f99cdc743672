#include "VirtualMac/Tools/CommandLine.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Tools/Colour.h"
#include "VirtualMac/Tools/JSONLine.h"

namespace virtualmac {

namespace {

std::vector<std::string> namesOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* each : command.get_subcommands(nullptr)) names.push_back(each->get_name());
  return names;
}

/// The first word that is neither an option nor an option's value must be a command, and the next
/// one too where that has commands of its own.
std::optional<std::string> unknownCommand(const CLI::App& program,
                                          const std::vector<const char*>& optionsWithValue,
                                          int argc, char** argv) {
  const CLI::App* command = &program;
  for (int index = 1; index < argc; ++index) {
    const std::string word = argv[index];
    if (word == "--help" || word == "-h") return std::nullopt;
    if (std::find(optionsWithValue.begin(), optionsWithValue.end(), word) !=
        optionsWithValue.end()) {
      ++index;
    } else if (!word.starts_with('-')) {
      const std::vector<std::string> names = namesOf(*command);
      if (std::find(names.begin(), names.end(), word) == names.end())
        return unknownWord("command", word, names);
      command = command->get_subcommand(word);
      if (namesOf(*command).empty()) return std::nullopt;
    }
  }
  if (command == &program) return std::nullopt;
  return fmt::format("{} takes one of these commands: {}", command->get_name(),
                     fmt::join(namesOf(*command), ", "));
}

int parseAndRun(CLI::App& program, const std::vector<const char*>& optionsWithValue, int argc,
                char** argv, const std::function<int()>& chosen) {
  const bool asJSON = std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
  if (const auto problem = unknownCommand(program, optionsWithValue, argc, argv)) {
    return complain(program.get_name(), asJSON, *problem, exitUsage);
  }
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return program.exit(error);
    return complain(program.get_name(), asJSON,
                    error.what() + std::string(asJSON ? "" : " (try --help)"), exitUsage);
  }
  return chosen();
}

}  // namespace

int complain(std::string_view program, bool asJSON, const std::string& text, int exitCode,
             std::optional<std::int64_t> errorCode) {
  if (asJSON) {
    nlohmann::ordered_json answer{{"ok", false}, {"error", text}};
    if (errorCode) answer["code"] = *errorCode;
    printJSON(answer);
  } else {
    // Not fmt::print, which throws: there is nowhere left to tell that this failed too.
    const std::string line = fmt::format(
        "{}: {}{}", program, errorCode ? fmt::format("error {}: ", *errorCode) : "", text);
    std::fputs((toned(Tone::Error, line, stderr) + '\n').c_str(), stderr);
  }
  return exitCode;
}

CLI::Validator numberBetween(double lowest, double highest) {
  const auto check = [lowest, highest](const std::string& text) -> std::string {
    double number = 0;
    if (CLI::detail::lexical_cast(text, number) && number >= lowest && number <= highest) return "";
    return fmt::format("\"{}\" is not a number from {} to {}", text, lowest, highest);
  };
  return {check, fmt::format("from {} to {}", lowest, highest), "number"};
}

CLI::Validator notEmpty() {
  const auto check = [](const std::string& text) -> std::string {
    return text.empty() ? "an empty text is not allowed" : "";
  };
  return {check, "", "text"};
}

void flushOutput() {
  errno = 0;
  std::cout.flush();
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0 && std::cout) return;
  throw std::system_error(errno != 0 ? errno : EIO, std::generic_category());
}

bool writeTextFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  return !file.fail();
}

int runCommandLine(CLI::App& program, const std::vector<const char*>& optionsWithValue, int argc,
                   char** argv, const std::function<int()>& chosen) {
  int status = exitDone;
  try {
    status = parseAndRun(program, optionsWithValue, argc, argv, chosen);
    flushOutput();
  } catch (const std::system_error& failure) {
    if (std::ferror(stdout) == 0 && std::cout) throw;
    complain(program.get_name(), false, "the output cannot be written: " + failure.code().message(),
             exitFailed);
    return status == exitDone ? exitFailed : status;
  }
  return status;
}

}  // namespace virtualmac
