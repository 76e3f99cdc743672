#pragma once

#include <array>
#include <cstdint>

/// Calls `function` as a Mac's compiler calls a function with variadic arguments: three named ones
/// in registers, the others in slots on the stack, and rubbish in every other argument register.
extern "C" std::int64_t tinTestCallVariadic(void* function, const std::uint64_t* named,
                                            const std::uint64_t* slots, std::uint64_t slotPairs);

namespace tinmac::test {

template <class... Slots>
std::int64_t callVariadic(void* function, std::array<std::uint64_t, 3> named, Slots... values) {
  std::array<std::uint64_t, 8> slots{};
  static_assert(sizeof...(values) <= slots.size());
  std::size_t used = 0;
  ((slots[used++] = values), ...);
  return tinTestCallVariadic(function, named.data(), slots.data(), slots.size() / 2);
}

inline std::uint64_t slot(const void* pointer) { return reinterpret_cast<std::uint64_t>(pointer); }

}  // namespace tinmac::test
