#pragma once

#include <cstdint>

namespace tinmac {

/// exit(): settles the books, flushes the streams and ends the process; no destructor runs. When
/// two threads call it the second one waits for the end. Any thread.
[[noreturn]] void exitProgram(std::int32_t status);

/// An uncaught exception becomes a trap from here on; with TIN_MAC_BOOKS set, the signal
/// SIGUSR1 writes the books and is otherwise ignored until the program sets an action for it.
void prepareProcess();

}  // namespace tinmac
