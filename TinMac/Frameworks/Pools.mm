#include <atomic>
#include <vector>

#import "TinMac/Frameworks/Runtime.h"

namespace tinmac {

namespace {

/// One thread's pools: one row of objects, in which nil marks where a pool begins.
struct Pools {
  std::vector<id> objects;
  std::size_t open = 0;
  /// An object that a method handed to its caller past the pool; the caller's claim is the very
  /// next thing that this thread does.
  id handedOver = nil;
  /// The process ends, and the pools are emptied under the thread that has opened them.
  std::atomic<bool> settled = false;
};

Pools* mainPools = nullptr;
std::vector<void (*)()>& settlers() {
  static auto& all = *new std::vector<void (*)()>;
  return all;
}

Pools& pools() {
  void** place = tinThreadPools();
  if (*place == nullptr) *place = new Pools;
  return *static_cast<Pools*>(*place);
}

/// Releasing may add to the pool, so the row's end is looked at each time.
void releaseDownTo(Pools& pools, std::size_t length) {
  while (pools.objects.size() > length) {
    id last = pools.objects.back();
    pools.objects.pop_back();
    if (last == nil) {
      --pools.open;
    } else {
      release(last);
    }
  }
}

/// The caller was compiled to claim the result: it says so by an instruction without effect, `mov
/// x29, x29`, which stands where the call returns to.
bool callerClaims(const void* returnAddress) {
  constexpr std::uint32_t marker = 0xAA1D03FD;
  return *static_cast<const std::uint32_t*>(returnAddress) == marker;
}

}  // namespace

void autorelease(id object) {
  if (object == nil || ownersOf(object) == INT64_MAX) return;
  Pools& mine = pools();
  if (mine.open == 0) {
    tinBooksNote("an object was autoreleased without a pool", className(classOf(object)));
    return;
  }
  mine.objects.push_back(object);
}

void adoptMainThread() { mainPools = &pools(); }

void onSettle(void (*release)()) { settlers().push_back(release); }

void settle() {
  for (auto* settler : settlers()) settler();
  if (mainPools == nullptr) return;
  mainPools->settled = true;
  releaseDownTo(*mainPools, 0);
}

}  // namespace tinmac

using namespace tinmac;

TIN_EXPORT void tinSettleBooks(void) { settle(); }

TIN_EXPORT void* objc_autoreleasePoolPush(void) {
  Pools& mine = pools();
  mine.objects.push_back(nil);
  ++mine.open;
  return reinterpret_cast<void*>(mine.objects.size());
}

TIN_EXPORT void objc_autoreleasePoolPop(void* token) {
  Pools& mine = pools();
  if (mine.settled) return;
  const auto begin = reinterpret_cast<std::size_t>(token);
  if (begin == 0 || begin > mine.objects.size() || mine.objects[begin - 1] != nil) {
    trap("an autorelease pool was popped that is not open", "objc_autoreleasePoolPop");
  }
  releaseDownTo(mine, begin - 1);
}

TIN_EXPORT id objc_autorelease(id object) {
  tinmac::autorelease(object);
  return object;
}

TIN_EXPORT id objc_retainAutorelease(id object) {
  tinmac::autorelease(tinmac::retain(object));
  return object;
}

TIN_EXPORT id objc_autoreleaseReturnValue(id object) {
  if (object != nil && callerClaims(__builtin_return_address(0))) {
    pools().handedOver = object;
  } else {
    tinmac::autorelease(object);
  }
  return object;
}

TIN_EXPORT id objc_retainAutoreleaseReturnValue(id object) {
  tinmac::retain(object);
  if (object != nil && callerClaims(__builtin_return_address(0))) {
    pools().handedOver = object;
  } else {
    tinmac::autorelease(object);
  }
  return object;
}

TIN_EXPORT id objc_retainAutoreleasedReturnValue(id object) {
  Pools& mine = pools();
  if (object != nil && mine.handedOver == object) {
    mine.handedOver = nil;
    return object;
  }
  return tinmac::retain(object);
}

/// The caller has no use for the result.
TIN_EXPORT id objc_unsafeClaimAutoreleasedReturnValue(id object) {
  Pools& mine = pools();
  if (object != nil && mine.handedOver == object) {
    mine.handedOver = nil;
    tinmac::release(object);
  }
  return object;
}
