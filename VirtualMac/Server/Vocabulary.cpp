#include "VirtualMac/Server/Vocabulary.h"

#include <nlohmann/json.hpp>

#include "Operations.h"
#include "VirtualMac/Machine/Deeds.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Server/ControlCommands.h"

namespace virtualmac {

namespace {

using nlohmann::ordered_json;

ordered_json settings() {
  ordered_json all = ordered_json::array();
  for (const Deed& deed : deedCatalogue()) {
    if (!deed.values) continue;
    ordered_json setting{{"name", deed.name}, {"values", deed.values->words}};
    if (deed.values->takesNumbers()) {
      setting["least"] = deed.values->low;
      setting["most"] = deed.values->high;
      setting["whole"] = deed.values->whole;
    }
    all.push_back(std::move(setting));
  }
  return all;
}

ordered_json operations() {
  const auto argument = [](korvel::OperationArgument kind) {
    if (kind == korvel::OperationArgument::None) return "none";
    return kind == korvel::OperationArgument::UInt8 ? "percent" : "boolean";
  };
  ordered_json all = ordered_json::array();
  for (const korvel::Operation& each : korvel::operations)
    all.push_back({{"word", each.word}, {"argument", argument(each.argument)}});
  return all;
}

}  // namespace

std::string vocabularyJSON(const Machine& machine, const std::vector<std::string>& signals,
                           const std::vector<std::string_view>& moreDeeds) {
  std::vector<std::string_view> deeds = deedNames(false);
  deeds.insert(deeds.end(), moreDeeds.begin(), moreDeeds.end());
  const ordered_json all = {{"settings", settings()},
                            {"faults", faultsJSON()},
                            {"signals", signals},
                            {"deeds", deeds},
                            {"identities", machine.signatures.names()},
                            {"operations", operations()},
                            {"profile", machine.profile().name}};
  return all.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace virtualmac
