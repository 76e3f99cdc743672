#pragma once

#include <string_view>

namespace korvel {

/// Ends the process with `text` on standard error (SIGABRT). For programming errors only: a failure
/// that can happen in the field is a value, never a trap.
[[noreturn]] void trap(std::string_view text);

}  // namespace korvel
