#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
class Validator;
}  // namespace CLI

namespace virtualmac {

/// Exit codes of the programs.
inline constexpr int exitDone = 0;
inline constexpr int exitFailed = 1;
inline constexpr int exitUsage = 2;

/// Tells what is wrong: a person on standard error, a program as one JSON object on standard
/// output. `errorCode` is the helper's, when the error is. Returns `exitCode`.
int complain(std::string_view program, bool asJSON, const std::string& text, int exitCode,
             std::optional<std::int64_t> errorCode = std::nullopt);

/// Upper bound for waits given on the command line (about 11 days).
inline constexpr double longestWaitSeconds = 1'000'000;

/// Accepts a number from `lowest` to `highest`, both included.
CLI::Validator numberBetween(double lowest, double highest);

/// Accepts a text that has something in it: an empty one is a variable that was never set.
CLI::Validator notEmpty();

/// Sees to it that what was printed has left the program; throws std::system_error where it cannot.
/// For programs that print as they go: one that nobody can hear any more ends.
void flushOutput();

/// Writes a file that a person asked for. False: it cannot be written.
bool writeTextFile(const std::string& path, const std::string& text);

/// Parses, and runs what the command's callback put into `chosen`. Returns an exit code: help is 0,
/// a wrong command line 2, with the nearest command for a word that is none. Wrong command lines
/// are told as JSON too, where `--json` is among the words. Output that cannot be written is a
/// failure.
int runCommandLine(CLI::App& program, const std::vector<const char*>& optionsWithValue, int argc,
                   char** argv, const std::function<int()>& chosen);

}  // namespace virtualmac
