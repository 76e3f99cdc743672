#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/ErrorObject.h"
#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

// The effect of an answer to a client, whichever way it went. `operation` is its method's name.

/// `ping 412`
Effect replied(std::string_view operation, std::uint64_t pid);
/// `getState ok` for bytes, `getState empty` for none.
Effect replied(std::string_view operation, const std::string& data);
/// `quit ok`, `quit failed 400 "…"`, `quit failed without an error`
Effect replied(std::string_view operation, bool success,
               const std::optional<korvel::ErrorObject>& error);

}  // namespace virtualmac
