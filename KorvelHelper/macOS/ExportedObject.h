#pragma once

#import <Foundation/Foundation.h>

#include <memory>

#include "KorvelHelperProtocol.h"
#import "macOS/KorvelHelperXPC/KorvelHelperXPC.h"

/// The object that a connection exports. It passes every message to the core on the same thread.
@interface KorvelExportedObject : NSObject <KorvelHelperProtocol>
- (instancetype)init NS_UNAVAILABLE;
- (instancetype)initWithCore:(std::shared_ptr<korvel::KorvelHelperProtocol>)sharedCore
    NS_DESIGNATED_INITIALIZER;
@end
