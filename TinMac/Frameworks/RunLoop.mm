#import "TinMac/Frameworks/RunLoop.h"

#include <algorithm>
#include <string>
#include <vector>

#include "TinMac/Frameworks/Lock.h"

@interface TinRunLoop : NSObject {
 @public
  uint64_t name;
}
@end
@implementation TinRunLoop
@end

@implementation TinRunLoopSource
@end

TIN_EXPORT const CFRunLoopMode kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");

namespace tinmac {

namespace {

os_unfair_lock runLoopLock = OS_UNFAIR_LOCK_INIT;
TinRunLoop* mainRunLoop = nil;

/// The sources on the main run loop, each with a reference of the loop's.
std::vector<TinRunLoopSource*>& sources() {
  static auto& all = *new std::vector<TinRunLoopSource*>;
  return all;
}

void letGo() {
  std::vector<TinRunLoopSource*> held;
  {
    const Locked locked(runLoopLock);
    held.swap(sources());
  }
  for (TinRunLoopSource* source : held) [source release];
}

/// Also makes the main run loop before the program starts, when one thread is there.
__attribute__((constructor)) void prepare() {
  mainRunLoop = [[TinRunLoop alloc] init];
  tinBooksCount("TinRunLoop", -1);  // It belongs to the process.
  onSettle(letGo);
}

/// False: there it was.
bool add(TinRunLoopSource* source) {
  const Locked locked(runLoopLock);
  if (std::ranges::find(sources(), source) != sources().end()) return false;
  sources().push_back([source retain]);
  return true;
}

/// False: there it was not.
bool remove(TinRunLoopSource* source) {
  {
    const Locked locked(runLoopLock);
    if (std::erase(sources(), source) == 0) return false;
  }
  [source release];
  return true;
}

void note(const char* rule) { tinBooksNote(rule, ""); }

/// Traps unless the two are what their types say; false, and a note, for a mode in which nobody
/// runs the loop.
bool isServed(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode,
              const char* function) {
  expectKind((id)loop, [TinRunLoop class], function);
  expectKind((id)source, [TinRunLoopSource class], function);
  expectKind((id)mode, [NSString class], function);
  if (utf8((NSString*)mode) == utf8((NSString*)kCFRunLoopDefaultMode)) return true;
  tinBooksNote("a run-loop mode that nobody runs", std::string(utf8((NSString*)mode)).c_str());
  return false;
}

}  // namespace

bool isOnRunLoop(TinRunLoopSource* source) {
  const Locked locked(runLoopLock);
  return std::ranges::find(sources(), source) != sources().end();
}

void invalidate(TinRunLoopSource* source) {
  source->isValid = false;
  remove(source);
}

}  // namespace tinmac

using namespace tinmac;

TIN_EXPORT CFRunLoopRef CFRunLoopGetMain() {
  mainRunLoop->name = tinMainRunLoop();
  return (CFRunLoopRef)mainRunLoop;
}

TIN_EXPORT void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source,
                                   CFRunLoopMode mode) {
  if (!isServed(loop, source, mode, __func__)) return;
  auto* added = (TinRunLoopSource*)source;
  if (!added->isValid) return note("a run-loop source is added after its port was destroyed");
  if (!add(added)) return note("a run-loop source is added twice");
  tinRunLoopAddSource(((TinRunLoop*)loop)->name, added->name);
}

TIN_EXPORT void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source,
                                      CFRunLoopMode mode) {
  if (!isServed(loop, source, mode, __func__)) return;
  auto* removed = (TinRunLoopSource*)source;
  tinRunLoopRemoveSource(((TinRunLoop*)loop)->name, removed->name);
  if (!remove(removed)) note("a run-loop source is removed that was not added");
}

TIN_EXPORT CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                                 Boolean returnAfterSourceHandled) {
  expectKind((id)mode, [NSString class], __func__);
  if (utf8((NSString*)mode) != utf8((NSString*)kCFRunLoopDefaultMode)) {
    trap("only the default mode of a run loop is built", utf8((NSString*)mode));
  }
  if (returnAfterSourceHandled) trap("a run loop that ends with a source is not built", __func__);
  tinMainRunFor(seconds);
  return kCFRunLoopRunTimedOut;
}

TIN_EXPORT void CFRunLoopRun() {
  tinMainRun();
  trap("the main run loop ended", __func__);
}
