// The process's own output, and its pauses.

#include <unistd.h>

#include <array>
#include <string>
#include <utility>

#include "TinMac/Frameworks/Lock.h"
#import "TinMac/Frameworks/Objects.h"

using namespace tinmac;

@interface NSFileHandle () {
 @public
  int descriptor;
}
@end

namespace {

/// The process's own, which go when it ends.
std::array<NSFileHandle*, 3> standard{};

void letGoOfStandard() {
  for (NSFileHandle*& handle : standard) [std::exchange(handle, nil) release];
}
__attribute__((constructor)) void prepare() { onSettle(letGoOfStandard); }

NSFileHandle* standardHandle(std::size_t descriptor) {
  static os_unfair_lock lock = OS_UNFAIR_LOCK_INIT;
  const Locked locked(lock);
  NSFileHandle*& handle = standard.at(descriptor);
  if (handle == nil) {
    handle = [[NSFileHandle alloc] init];
    handle->descriptor = static_cast<int>(descriptor);
  }
  return handle;
}

}  // namespace

@implementation NSFileHandle
+ (NSFileHandle*)fileHandleWithStandardOutput {
  return standardHandle(STDOUT_FILENO);
}
+ (NSFileHandle*)fileHandleWithStandardError {
  return standardHandle(STDERR_FILENO);
}
- (void)writeData:(NSData*)data {
  const std::span<const std::uint8_t> bytes = bytesOf(data);
  const int error = tinWriteOut(descriptor, bytes.data(), bytes.size());
  if (error != 0) {
    raise("NSFileHandleOperationException", "-[NSFileHandle writeData:]: " + std::to_string(error));
  }
}
@end

@implementation NSThread
+ (void)sleepForTimeInterval:(NSTimeInterval)seconds {
  tinPause(seconds);
}
@end
