#include "VirtualMac/Tools/AppSession.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <variant>
#include <vector>

#include "KorvelHelperProtocol.h"
#include "VirtualMac/Tools/AppConnection.h"
#include "VirtualMac/Tools/CommandLine.h"

namespace virtualmac {

using korvel::PropertyValue;
namespace selector = korvel::KorvelHelperSelector;

namespace {

using nlohmann::ordered_json;

struct RequestWord {
  std::string_view word;
  std::string_view selector;
};

constexpr std::array<RequestWord, 11> requestWords{{
    {"ping", selector::ping},
    {"capabilities", selector::capabilities},
    {"set-limit", selector::setChargeLimit},
    {"clear-limit", selector::clearChargeLimit},
    {"discharge", selector::forceDischarge},
    {"keep-awake", selector::setClamshellKeepAwake},
    {"top-off", selector::releaseLimitUntilFullThenRestore},
    {"cancel-top-off", selector::cancelTopUp},
    {"state", selector::getState},
    {"reset", selector::resetAllSMCKeys},
    {"quit", selector::quit},
}};

void say(const ordered_json& answer) {
  // Texts come from the other side; what is not UTF-8 in them must not end the session.
  fmt::print("{}\n", answer.dump(-1, ' ', false, ordered_json::error_handler_t::replace));
  flushOutput();
}

/// The arguments in `text` for an operation; none: they are not its arguments.
std::optional<std::vector<PropertyValue>> arguments(XPCArgument kind, std::string_view text) {
  std::vector<PropertyValue> given;
  if (kind == XPCArgument::None) return text.empty() ? std::optional(given) : std::nullopt;
  if (kind == XPCArgument::Boolean) {
    if (text != "on" && text != "off") return std::nullopt;
    given.emplace_back(text == "on");
    return given;
  }
  std::uint8_t number = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || end != text.data() + text.size()) return std::nullopt;
  given.emplace_back(std::int64_t{number});
  return given;
}

ordered_json answerTo(const XPCOperation& operation, const std::vector<XPCValue>& values) {
  ordered_json answer{{"ok", true}};
  if (operation.answer == XPCAnswer::Pid) {
    answer["pid"] = std::get<PropertyValue>(values.front()).integer().value_or(0);
  }
  if (operation.answer == XPCAnswer::Data) {
    const auto* bytes = std::get<PropertyValue>(values.front()).data();
    answer["data"] = std::string(bytes->begin(), bytes->end());
  }
  if (operation.answer != XPCAnswer::Outcome ||
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
  const std::string_view word = std::string_view(line).substr(0, space);
  const std::string_view rest = std::string_view(line).substr(std::min(space + 1, line.size()));
  for (const RequestWord& known : requestWords) {
    if (known.word != word) continue;
    const XPCOperation& operation = *xpcOperation(known.selector);
    const auto given = arguments(operation.argument, rest);
    if (!given) break;
    const auto values = helper.call(operation, *given, timeoutSeconds);
    if (!values) return {{"ok", false}, {"lost", true}, {"error", values.error()}};
    return answerTo(operation, *values);
  }
  return {{"ok", false}, {"usage", true}, {"error", "no such request: " + line}};
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
