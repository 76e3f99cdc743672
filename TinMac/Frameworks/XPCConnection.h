#pragma once

#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Objects.h"

@interface NSXPCConnection (Acceptance)
/// A new connection, which the listener's delegate may change until `endAcceptance`.
- (instancetype)initForAccepting:(TinConnection*)accepted;
- (void)endAcceptance;
/// Whether the delegate resumed it.
- (BOOL)wasResumed;
@end
