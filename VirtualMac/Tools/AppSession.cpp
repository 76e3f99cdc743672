#include "VirtualMac/Tools/AppSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <expected>
#include <iostream>
#include <nlohmann/json.hpp>
#include <variant>
#include <vector>

#include "Operations.h"
#include "VirtualMac/Tools/AppConnection.h"
#include "VirtualMac/Tools/CommandLine.h"

namespace virtualmac {

using korvel::Operation;
using korvel::PropertyValue;

namespace {

using nlohmann::ordered_json;

void say(const ordered_json& answer) {
  // Texts come from the other side; what is not UTF-8 in them must not end the session.
  fmt::print("{}\n", answer.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
  flushOutput();
}

ordered_json answerTo(const Operation& operation, const std::vector<XPCValue>& values) {
  ordered_json answer{{"ok", true}};
  if (operation.answer == korvel::OperationAnswer::Pid) {
    answer["pid"] = std::get<PropertyValue>(values.front()).integer().value_or(0);
  }
  if (operation.answer == korvel::OperationAnswer::Data) {
    const auto* bytes = std::get<PropertyValue>(values.front()).data();
    answer["data"] = std::string(bytes->begin(), bytes->end());
  }
  if (operation.answer != korvel::OperationAnswer::Outcome ||
      std::get<PropertyValue>(values.front()).boolean().value_or(false)) {
    return answer;
  }
  answer["ok"] = false;
  if (const auto* error = std::get_if<korvel::ErrorObject>(&values[1])) {
    answer["code"] = error->code;
    answer["error"] = error->localizedDescription();
  }
  return answer;
}

ordered_json perform(AppConnection& helper, const std::string& line, double timeoutSeconds) {
  const std::size_t space = std::min(line.find(' '), line.size());
  const std::string word = line.substr(0, space);
  const std::string rest = line.substr(std::min(space + 1, line.size()));
  const Operation* operation = korvel::operationWith(&Operation::word, word);
  const auto argument =
      operation == nullptr ? std::unexpected(std::string()) : argumentFrom(*operation, rest);
  if (!argument) return {{"ok", false}, {"usage", true}, {"error", "no such request: " + line}};
  const auto values = helper.call(*operation, *argument, timeoutSeconds);
  if (!values) return {{"ok", false}, {"lost", true}, {"error", values.error()}};
  return answerTo(*operation, *values);
}

}  // namespace

int runSession(const RootDirectory& root, const std::string& identity, double timeoutSeconds) {
  auto helper = AppConnection::open(root, identity);
  if (!helper) {
    say({{"connected", false}, {"error", helper.error().text}});
    return helper.error().isUsage ? exitUsage : exitFailed;
  }
  say({{"connected", true}});
  for (std::string line; std::getline(std::cin, line);) {
    if (!line.empty()) say(perform(*helper, line, timeoutSeconds));
  }
  return exitDone;
}

}  // namespace virtualmac
