#pragma once

#include <string_view>

namespace tinmac {

/// The program broke a rule that a Mac does not forgive, or used what is not built. Says which on
/// standard error, writes the books and ends the process with SIGABRT. Any thread.
[[noreturn]] void trap(std::string_view rule, std::string_view detail);

}  // namespace tinmac
