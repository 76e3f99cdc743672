#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "TinMac/Frameworks/Below.h"
#include "TinMac/System/Books.h"
#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Host.h"
#include "TinMac/System/Numbers.h"
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

std::int32_t tinWriteOut(std::int32_t descriptor, const std::uint8_t* bytes, std::size_t length) {
  while (length > 0) {
    const ssize_t written = ::write(descriptor, bytes, length);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return tinmac::macError(errno);
    bytes += written;
    length -= static_cast<std::size_t>(written);
  }
  return 0;
}
}

namespace tinmac {

std::span<const Export> supportExports() {
  static const Export table[] = {
      {"_tinTrap", code(tinTrap)},
      {"_tinBooksCount", code(tinBooksCount)},
      {"_tinBooksNote", code(tinBooksNote)},
      {"_tinThreadPools", code(tinThreadPools)},
      {"_tinMainRun", code(tinMainRun)},
      {"_tinMainRunFor", code(tinMainRunFor)},
      {"_tinSemaphoreMake", code(tinSemaphoreMake)},
      {"_tinSemaphoreFree", code(tinSemaphoreFree)},
      {"_tinSemaphoreSignal", code(tinSemaphoreSignal)},
      {"_tinSemaphoreWait", code(tinSemaphoreWait)},
      {"_tinPause", code(tinPause)},
      {"_tinWriteOut", code(tinWriteOut)},
  };
  return table;
}

}  // namespace tinmac
