#include "VirtualMac/Remote/RequestWords.h"

#include "VirtualMac/Machine/Deeds.h"

namespace virtualmac {

using korvel::Operation;
using korvel::OperationArgument;

std::expected<Operation, std::string> foreignOperation(std::string_view selector) {
  const std::string named(selector);
  if (selector.empty()) return std::unexpected(std::string("call takes a method, by its selector"));
  if (const auto* known = korvel::operationWith(&Operation::selector, selector))
    return std::unexpected('"' + named + "\" is no foreign method: say " +
                           std::string(known->word));
  return Operation{selector, selector, OperationArgument::None, korvel::OperationAnswer::Outcome,
                   foreignCallWord};
}

std::expected<std::uint8_t, std::string> argumentFrom(const Operation& operation,
                                                      const std::string& word) {
  const std::string what(operation.word);
  if (operation.argument == OperationArgument::None) {
    if (word.empty()) return std::uint8_t{0};
    return std::unexpected(what + " takes nothing, not \"" + word + '"');
  }
  const bool isSwitch = operation.argument == OperationArgument::Boolean;
  const auto given =
      (isSwitch ? onOrOff : AllowedValues{.high = 255, .whole = true}).read(what, word);
  if (!given) return std::unexpected(given.error());
  return isSwitch ? std::uint8_t{word == "on"} : static_cast<std::uint8_t>(given->number);
}

}  // namespace virtualmac
