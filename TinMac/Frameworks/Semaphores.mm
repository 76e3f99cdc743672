#include <dispatch/dispatch.h>

#import "TinMac/Frameworks/Objects.h"

/// An object, since a program with automatic counting owns its semaphores as it owns any other.
@interface OS_dispatch_semaphore : NSObject {
 @public
  void* counter;
}
@end

@implementation OS_dispatch_semaphore
- (void)dealloc {
  tinSemaphoreFree(counter);
  [super dealloc];
}
@end

namespace {

void* counterOf(dispatch_semaphore_t semaphore, const char* function) {
  const id object = reinterpret_cast<id>(semaphore);
  tinmac::expectKind(object, [OS_dispatch_semaphore class], function);
  return static_cast<OS_dispatch_semaphore*>(object)->counter;
}

}  // namespace

TIN_EXPORT dispatch_semaphore_t dispatch_semaphore_create(intptr_t value) {
  if (value < 0) return nullptr;
  OS_dispatch_semaphore* made = [[OS_dispatch_semaphore alloc] init];
  made->counter = tinSemaphoreMake(value);
  return reinterpret_cast<dispatch_semaphore_t>(made);
}

TIN_EXPORT intptr_t dispatch_semaphore_signal(dispatch_semaphore_t semaphore) {
  return tinSemaphoreSignal(counterOf(semaphore, __func__));
}

TIN_EXPORT intptr_t dispatch_semaphore_wait(dispatch_semaphore_t semaphore,
                                            dispatch_time_t timeout) {
  constexpr intptr_t timedOut = 49;
  return tinSemaphoreWait(counterOf(semaphore, __func__), timeout) != 0 ? 0 : timedOut;
}
