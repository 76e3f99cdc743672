#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "VirtualMac/Remote/CallCodec.h"

namespace virtualmac {

/// The type that holds an argument while a call is made from received bytes. A view gets an owner.
template <class Argument>
struct ArgumentStorage {
  using Type = std::remove_cvref_t<Argument>;
};
template <>
struct ArgumentStorage<std::string_view> {
  using Type = std::string;
};
template <class Byte, std::size_t Size>
struct ArgumentStorage<std::span<Byte, Size>> {
  using Type = std::array<std::uint8_t, Size>;
};

/// An argument that comes back with the answer.
template <class Argument>
inline constexpr bool isOutArgument =
    std::is_lvalue_reference_v<Argument> && !std::is_const_v<std::remove_reference_t<Argument>>;
template <std::size_t Size>
inline constexpr bool isOutArgument<std::span<std::uint8_t, Size>> = true;

/// Takes an out-argument's new value into the caller's variable; leaves others alone.
template <class Argument, class Variable>
void takeBack(WireReader& from, Variable& variable) {
  if constexpr (isOutArgument<Argument>) {
    if constexpr (requires { std::span<std::uint8_t>(variable); })
      from.raw(variable);
    else
      get(from, variable);
  }
}

/// Sends an out-argument's new value back.
template <class Argument, class Variable>
void giveBack(WireWriter& to, Variable& variable) {
  if constexpr (isOutArgument<Argument>) {
    if constexpr (requires { std::span<std::uint8_t>(variable); })
      to.raw(variable);
    else
      put(to, variable);
  }
}

/// The machine's half of one call: reads the arguments that the declaration `method` asks for,
/// makes the call, writes the result and the out-arguments. When the arguments do not read, the
/// call is not made and nothing is written.
template <class Interface, class Result, class... Arguments>
void serveCall(Result (Interface::*method)(Arguments...), Interface& answering, WireReader& from,
               WireWriter& to) {
  std::tuple<typename ArgumentStorage<Arguments>::Type...> held{};
  std::apply([&from](auto&... argument) { (get(from, argument), ...); }, held);
  if (!from.finish()) return;
  std::apply(
      [&](auto&... argument) {
        if constexpr (std::is_void_v<Result>)
          (answering.*method)(argument...);
        else
          put(to, (answering.*method)(argument...));
        (giveBack<Arguments>(to, argument), ...);
      },
      held);
}

/// The helper's half: the arguments of one call as bytes.
template <class... Arguments>
void putArguments(WireWriter& to, const Arguments&... arguments) {
  (put(to, arguments), ...);
}

/// The helper's half of the way back: out-arguments into the caller's variables.
template <class... Arguments>
void getOutArguments(WireReader& from, std::remove_reference_t<Arguments>&... arguments) {
  (takeBack<Arguments>(from, arguments), ...);
}

}  // namespace virtualmac
