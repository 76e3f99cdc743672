#pragma once

#include "TinMac/System/Exports.h"

namespace tinmac {

/// A function's address for a table.
template <class Function>
void* code(Function* function) {
  return reinterpret_cast<void*>(function);
}

// One table a topic; together they are systemExports().
std::span<const Export> cLibraryExports();
std::span<const Export> cxxRuntimeExports();
std::span<const Export> fileExports();
std::span<const Export> formatExports();
std::span<const Export> processExports();
std::span<const Export> dispatchExports();
std::span<const Export> osLogExports();
std::span<const Export> unfairLockExports();

// Entries for calls with variadic arguments, in assembly.
extern "C" {
void tinOpenVeneer();
void tinSnprintfVeneer();
void tinFprintfVeneer();
}

}  // namespace tinmac
