#import "TinMac/Frameworks/XPCKept.h"

#include <map>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/XPCClient.h"

namespace tinmac {

namespace {

os_unfair_lock keptLock = OS_UNFAIR_LOCK_INIT;

/// By their numbers, which are never given twice.
struct Kept {
  std::uintptr_t last = 0;
  std::map<std::uintptr_t, id> objects;
};

Kept& kept() {
  static auto& all = *new Kept;
  return all;
}

void letGoOfAll() {
  quietClients();
  std::map<std::uintptr_t, id> left;
  {
    const Locked locked(keptLock);
    left.swap(kept().objects);
  }
  for (const auto& [number, object] : left) [object release];
}

__attribute__((constructor)) void prepare() { onSettle(letGoOfAll); }

}  // namespace

void* keep(id object) {
  const Locked locked(keptLock);
  kept().objects.emplace(++kept().last, [object retain]);
  return reinterpret_cast<void*>(kept().last);
}

id claim(void* context) {
  const Locked locked(keptLock);
  const auto found = kept().objects.find(reinterpret_cast<std::uintptr_t>(context));
  return found == kept().objects.end() ? nil : [found->second retain];
}

void letGo(void* context) {
  id object = nil;
  {
    const Locked locked(keptLock);
    const auto found = kept().objects.extract(reinterpret_cast<std::uintptr_t>(context));
    if (found) object = found.mapped();
  }
  [object release];
}

}  // namespace tinmac
