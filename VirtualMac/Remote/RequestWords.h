#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>

#include "Operations.h"

namespace virtualmac {

// Requests as a person says them. The helper itself has no use for these.

/// The argument of an operation as a person says it: `80`, `on`, nothing where it takes none. 0
/// stands for none and for off, 1 for on. The error says what is allowed.
std::expected<std::uint8_t, std::string> argumentFrom(const korvel::Operation& operation,
                                                      const std::string& word);

/// The word of a request that names a method which the protocol lacks: `call setSchedule`.
inline constexpr std::string_view foreignCallWord = "call";
/// Such a method, as a newer client knows it; `selector` must outlive it. The error says why the
/// selector names none.
std::expected<korvel::Operation, std::string> foreignOperation(std::string_view selector);

}  // namespace virtualmac
