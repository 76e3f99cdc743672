#include "TinMac/System/Host.h"

#include <atomic>

#include "TinMac/System/Process.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

std::atomic<Host*> machine = nullptr;

}  // namespace

void setHost(Host& host) {
  machine = &host;
  prepareProcess();
}

Host& host() {
  Host* const known = machine;
  if (known == nullptr) trap("no machine", "a library was called before setHost");
  return *known;
}

}  // namespace tinmac
