#pragma once

#import "TinMac/Frameworks/Objects.h"

/// A notification port gives this to a run loop.
@interface TinRunLoopSource : NSObject {
 @public
  uint64_t name;
  /// Its port is there.
  bool isValid;
}
@end

namespace tinmac {

/// Whether the source is on a run loop.
bool isOnRunLoop(TinRunLoopSource* source);
/// Takes the source off its run loop, if it is on one, and lets nobody add it again.
void invalidate(TinRunLoopSource* source);

}  // namespace tinmac
