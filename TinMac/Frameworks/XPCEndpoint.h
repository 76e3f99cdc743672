#pragma once

#include <cstdint>

#import "TinMac/Frameworks/Objects.h"

@interface NSXPCListenerEndpoint () {
 @public
  /// As the glue knows it.
  std::uint32_t number;
}
@end
