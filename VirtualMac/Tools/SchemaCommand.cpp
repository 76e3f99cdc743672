#include "VirtualMac/Tools/SchemaCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "VirtualMac/Tools/BuiltInDocuments.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/JSONLine.h"

namespace virtualmac {

void addSchema(CLI::App& program, std::function<int()>& chosen) {
  const auto kind = std::make_shared<std::string>();
  CLI::App* command = program.add_subcommand(
      "schema", "Print the JSON schema of a file, with which an editor completes and checks it");
  command->add_option("kind", *kind, "scenario or profile")
      ->required()
      ->check(CLI::IsMember({"scenario", "profile"}));
  command->callback([kind, &program, &chosen] {
    const bool asJSON = program.get_option("--json")->as<bool>();
    chosen = [kind, asJSON] {
      const bool isStory = *kind == "scenario";
      const std::string schema(isStory ? documents::scenarioSchema() : documents::profileSchema());
      if (asJSON)
        printJSON({{"ok", true}, {"schema", valueOf(schema)}});
      else
        fmt::print("{}", schema);
      return exitDone;
    };
  });
}

}  // namespace virtualmac
