#pragma once

#include <cstdint>
#include <string_view>

#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Objects.h"

@interface NSXPCInterface (Settings)
/// Tells a connection the classes that were set for the arguments of replies. An argument without a
/// setting has the class that the protocol declares, which the machine knows.
- (void)tellReplyClassesTo:(TinConnection*)connection;
/// Whether an argument of a reply may hold this object. Without a setting it has the declared
/// class, and a container holds any property list; with one, so are the classes of all that it
/// holds.
- (BOOL)allows:(id)value
     inReplyTo:(SEL)selector
      argument:(std::uint32_t)index
      declared:(std::string_view)className;
@end
