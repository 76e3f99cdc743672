#pragma once

#import <Foundation/Foundation.h>

#include <memory>

#include "KorvelHelperProtocol.h"
#import "macOS/KorvelHelperXPC/KorvelHelperXPC.h"

/// What a connection exports: every message goes to the core as it came, on the thread it came on.
@interface KorvelExportedObject : NSObject <KorvelHelperProtocol>
- (instancetype)init NS_UNAVAILABLE;
- (instancetype)initWithCore:(std::shared_ptr<korvel::KorvelHelperProtocol>)sharedCore
    NS_DESIGNATED_INITIALIZER;
@end
