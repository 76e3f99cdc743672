#include "VirtualMac/Tools/ExplainCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/Explain.h"
#include "VirtualMac/Tools/JSONLine.h"

namespace virtualmac {

namespace {

int explainOne(const std::string& line, bool asJSON) {
  const auto explanation = explain(line);
  if (!explanation) return complain("virtual-mac", asJSON, explanation.error(), exitFailed);
  if (asJSON)
    printJSON(explanationJSON(*explanation));
  else
    fmt::print("{}", explanationText(*explanation));
  return exitDone;
}

/// Explains every line of standard input; an empty line between two explanations for a person.
int explainInput(bool asJSON) {
  int status = exitDone;
  bool isFirst = true;
  for (std::string line; std::getline(std::cin, line);) {
    if (line.empty()) continue;
    if (!asJSON && !std::exchange(isFirst, false)) fmt::print("\n");
    if (explainOne(line, asJSON) != exitDone) status = exitFailed;
    flushOutput();
  }
  return status;
}

}  // namespace

void addExplain(CLI::App& program, std::function<int()>& chosen) {
  const auto words = std::make_shared<std::vector<std::string>>();
  CLI::App* command = program.add_subcommand(
      "explain", "Say what a line of the helper's log means, and what to do");
  command->add_option("line", *words, "The line as it was printed; - reads lines from input")
      ->required();
  command->callback([words, &program, &chosen] {
    const bool asJSON = program.get_option("--json")->as<bool>();
    chosen = [words, asJSON] {
      if (*words == std::vector<std::string>{"-"}) return explainInput(asJSON);
      std::string line;
      for (const std::string& word : *words) line += (line.empty() ? "" : " ") + word;
      return explainOne(line, asJSON);
    };
  });
}

}  // namespace virtualmac
