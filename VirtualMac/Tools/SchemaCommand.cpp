#include "VirtualMac/Tools/SchemaCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "VirtualMac/Tools/BuiltInDocuments.h"
#include "VirtualMac/Tools/CommandLine.h"

namespace virtualmac {

void addSchema(CLI::App& program, std::function<int()>& chosen) {
  const auto kind = std::make_shared<std::string>();
  CLI::App* command = program.add_subcommand(
      "schema", "Print the JSON schema of a file, with which an editor completes and checks it");
  command->add_option("kind", *kind, "scenario or profile")
      ->required()
      ->check(CLI::IsMember({"scenario", "profile"}));
  command->callback([kind, &chosen] {
    chosen = [kind] {
      const bool isStory = *kind == "scenario";
      fmt::print("{}", isStory ? documents::scenarioSchema() : documents::profileSchema());
      return exitDone;
    };
  });
}

}  // namespace virtualmac
