#include <unistd.h>

#include <string_view>

#include "TinMac/Frameworks/Below.h"
#include "TinMac/System/Books.h"
#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Host.h"
#include "TinMac/System/Trap.h"

extern "C" {

void tinTrap(const char* rule, const char* detail) { tinmac::trap(rule, detail); }

void tinBooksCount(const char* className, std::int32_t change) {
  tinmac::countObjects(className, change);
}

void tinBooksNote(const char* rule, const char* detail) { tinmac::noteRule(rule, detail); }

void** tinThreadPools() {
  static thread_local void* pools = nullptr;
  return &pools;
}

void tinMainRunFor(double seconds) { tinmac::host().runMainLoopFor(seconds); }

void tinMainRun() {
  if (::gettid() != ::getpid()) tinmac::trap("a run loop", "only the main thread's is built");
  tinmac::markBooks();
  tinmac::host().runMainLoop();
  tinmac::trap("the main loop ended", "it runs for the process's life");
}
}

namespace tinmac {

std::span<const Export> supportExports() {
  static const Export table[] = {
      {"_tinTrap", code(tinTrap)},           {"_tinBooksCount", code(tinBooksCount)},
      {"_tinBooksNote", code(tinBooksNote)}, {"_tinThreadPools", code(tinThreadPools)},
      {"_tinMainRun", code(tinMainRun)},     {"_tinMainRunFor", code(tinMainRunFor)},
  };
  return table;
}

}  // namespace tinmac
