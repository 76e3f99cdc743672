#pragma once

#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Objects.h"

@interface NSXPCInterface (Settings)
/// Tells a connection the classes that were set for the arguments of replies. An argument without a
/// setting has the class that the protocol declares, which the machine knows.
- (void)tellReplyClassesTo:(TinConnection*)connection;
@end
