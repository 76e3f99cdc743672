#include "TinMac/System/Process.h"

#include <cxxabi.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <typeinfo>

#include "TinMac/System/Books.h"
#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Numbers.h"
#include "TinMac/System/Signals.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

[[noreturn]] void abortProgram() {
  writeBooks("abort");
  // A Mac's abort() ends the process even when the program ignores the signal or listens to it.
  std::signal(SIGABRT, SIG_DFL);
  std::abort();
}

[[noreturn]] void terminated() {
  const std::type_info* const type = abi::__cxa_current_exception_type();
  trap("std::terminate", type == nullptr ? "without an exception" : type->name());
}

std::int32_t ownNumber() { return ::getpid(); }

}  // namespace

void exitProgram(std::int32_t status) {
  // Never unlocked: there is one end.
  static std::mutex end;
  end.lock();
  settleBooks(status);
  std::fflush(nullptr);
  std::_Exit(status);
}

void prepareProcess() {
  std::set_terminate(terminated);
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  if (std::getenv("TIN_MAC_BOOKS") == nullptr) return;
  // A signal that is not ignored would still have its default action.
  setSignalAction(macSignal(SIGUSR1), SIG_IGN);
  listenToSignal(macSignal(SIGUSR1), [] { writeBooks("signal"); });
}

std::span<const Export> processExports() {
  static const Export table[] = {
      {"_abort", code(abortProgram)},
      {"_exit", code(exitProgram)},
      {"_getpid", code(ownNumber)},
      {"_signal", code(setSignalAction)},
  };
  return table;
}

}  // namespace tinmac
