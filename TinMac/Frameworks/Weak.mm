#import "TinMac/Frameworks/Weak.h"

#include <map>

#include "TinMac/Frameworks/Lock.h"

namespace tinmac {

namespace {

os_unfair_lock weakLock = OS_UNFAIR_LOCK_INIT;

std::multimap<id, id*>& places() {
  static auto& byObject = *new std::multimap<id, id*>;
  return byObject;
}

void forget(id object, const id* place) {
  const auto [first, last] = places().equal_range(object);
  for (auto each = first; each != last; ++each) {
    if (each->second != place) continue;
    places().erase(each);
    return;
  }
}

}  // namespace

void emptyWeakPlaces(id object) {
  const Locked locked(weakLock);
  const auto [first, last] = places().equal_range(object);
  for (auto each = first; each != last; ++each) *each->second = nil;
  places().erase(first, last);
}

}  // namespace tinmac

using namespace tinmac;

TIN_EXPORT id objc_storeWeak(id* place, id object) {
  const Locked locked(weakLock);
  if (*place != nil) forget(*place, place);
  *place = object;
  if (object != nil) places().emplace(object, place);
  return object;
}

TIN_EXPORT id objc_loadWeakRetained(id* place) {
  const Locked locked(weakLock);
  return *place != nil && retainIfOwned(*place) ? *place : nil;
}

/// The place itself goes.
TIN_EXPORT void objc_destroyWeak(id* place) { objc_storeWeak(place, nil); }
