#include "VirtualMac/Tools/AppAnswer.h"

#include <nlohmann/json.hpp>
#include <variant>

#include "VirtualMac/Tools/JSONLine.h"

namespace virtualmac {

using korvel::PropertyValue;
using nlohmann::ordered_json;

ordered_json answerJSON(const korvel::Operation& operation, const std::vector<XPCValue>& values) {
  ordered_json answer{{"ok", true}};
  if (operation.answer == korvel::OperationAnswer::Pid) {
    answer["pid"] = std::get<PropertyValue>(values.front()).integer().value_or(0);
  }
  if (operation.answer == korvel::OperationAnswer::Data) {
    const auto* bytes = std::get<PropertyValue>(values.front()).data();
    answer[std::string(operation.word)] = valueOf(std::string(bytes->begin(), bytes->end()));
  }
  if (operation.answer != korvel::OperationAnswer::Outcome ||
      std::get<PropertyValue>(values.front()).boolean().value_or(false)) {
    return answer;
  }
  answer["ok"] = false;
  const auto* error = values.size() > 1 ? std::get_if<korvel::ErrorObject>(&values[1]) : nullptr;
  if (error != nullptr) answer["code"] = error->code;
  answer["error"] = error != nullptr ? error->localizedDescription() : "failed without an error";
  return answer;
}

ordered_json lostJSON(const std::string& why) {
  return {{"ok", false}, {"lost", true}, {"error", why}};
}

}  // namespace virtualmac
