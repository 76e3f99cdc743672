#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "KorvelHelperProtocol.h"

namespace korvel {

enum class OperationArgument : std::uint8_t { None, UInt8, Boolean };
enum class OperationAnswer : std::uint8_t { None, Pid, Data, Outcome };

/// One operation of KorvelHelperProtocol as transports and clients know it: a row of
/// Operations.def, which says what the fields are. The core itself has no use for it.
struct Operation {
  std::string_view method;
  std::string_view selector;
  OperationArgument argument;
  OperationAnswer answer;
  std::string_view word;
};

namespace operation {
#define OPERATION(method, selector, argument, answer, word)                         \
  inline constexpr Operation method{#method, selector, OperationArgument::argument, \
                                    OperationAnswer::answer, word};
#include "Operations.def"
#undef OPERATION
}  // namespace operation

/// All of them, in their published order.
inline constexpr std::array operations{
#define OPERATION(method, selector, argument, answer, word) operation::method,
#include "Operations.def"
#undef OPERATION
};

/// The operation with this name, `&Operation::selector` for one; null: there is none.
constexpr const Operation* operationWith(std::string_view Operation::* name,
                                         std::string_view text) {
  const auto found = std::ranges::find(operations, text, name);
  return found == operations.end() ? nullptr : &*found;
}

/// Calls the operation's method. A Boolean argument is 0 or 1. `makeReply(std::type_identity<R>())`
/// makes the reply, where the method takes an R.
void callOperation(const Operation& called, KorvelHelperProtocol& helper, std::uint8_t argument,
                   const auto& makeReply) {
  const auto parameter = [&]<class Parameter>(std::type_identity<Parameter> type) -> Parameter {
    if constexpr (std::is_integral_v<Parameter>) {
      return static_cast<Parameter>(argument);
    } else {
      return makeReply(type);
    }
  };
  const auto call = [&]<class... Parameters>(void (KorvelHelperProtocol::*method)(Parameters...)) {
    (helper.*method)(parameter(std::type_identity<Parameters>())...);
  };
#define OPERATION(name, selector, argumentKind, answer, word) \
  if (called.method == #name) return call(&KorvelHelperProtocol::name);
#include "Operations.def"
#undef OPERATION
}

}  // namespace korvel
