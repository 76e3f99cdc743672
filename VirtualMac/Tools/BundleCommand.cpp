#include "VirtualMac/Tools/BundleCommand.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "VirtualMac/Tools/Bundle.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/JSONLine.h"

namespace virtualmac {

namespace {

struct BundleChoices {
  BundleRequest request;
  std::string file;
  bool leavesHelperAlone = false;
  bool asJSON = false;
};

int writeBundle(const BundleChoices& choices) {
  const auto failed = [&](const std::string& problem) {
    return complain("virtual-mac", choices.asJSON, problem, exitFailed);
  };
  const auto bundle = bundleOf(choices.request);
  if (!bundle) return failed(bundle.error());
  if (choices.file.empty() && choices.asJSON) {
    nlohmann::ordered_json answer{{"ok", true}};
    answer.update(*bundle);
    printJSON(answer);
    return exitDone;
  }
  const std::string text =
      bundle->dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
  if (choices.file.empty()) {
    fmt::print("{}", text);
    return exitDone;
  }
  if (!writeTextFile(choices.file, text)) return failed(choices.file + " cannot be written");
  if (choices.asJSON)
    printJSON({{"ok", true}, {"file", choices.file}});
  else
    fmt::print("{} has it all; look through it before you pass it on\n", choices.file);
  return exitDone;
}

}  // namespace

void addBundle(CLI::App& program, std::function<int()>& chosen) {
  const auto choices = std::make_shared<BundleChoices>();
  CLI::App* command = program.add_subcommand(
      "bundle", "Put all that is known of the machine and its helper into one file");
  command->add_option("file", choices->file, "JSON file to write; default: standard output")
      ->type_name("FILE")
      ->check(notEmpty());
  command->add_flag("--ask-nothing", choices->leavesHelperAlone,
                    "Do not connect to the helper, which would arm its saved limit");
  command->add_option("--timeout", choices->request.timeoutSeconds, "Real seconds to wait for it")
      ->capture_default_str()
      ->check(numberBetween(0.001, longestWaitSeconds));
  command->callback([choices, &program, &chosen] {
    choices->request.root = RootDirectory::at(program.get_option("--root")->as<std::string>());
    choices->request.asks = !choices->leavesHelperAlone;
    choices->asJSON = program.get_option("--json")->as<bool>();
    chosen = [choices] { return writeBundle(*choices); };
  });
}

}  // namespace virtualmac
