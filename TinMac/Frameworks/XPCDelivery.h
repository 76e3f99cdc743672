#pragma once

#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Objects.h"

/// A connection's exports, as the machine holds them: an object, and the protocol by which peers
/// send it messages.
@interface TinExport : NSObject {
 @public
  NSXPCConnection* connection;
  id object;
  Protocol* protocol;
}
@end

namespace tinmac {

/// Passes messages on to the object of the TinExport that is kept as `context`.
TinExported exportedAs(void* context);
/// The connection whose message this thread delivers; nil outside of one.
NSXPCConnection* connectionOfCall();

}  // namespace tinmac
