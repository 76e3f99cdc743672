#pragma once

#import <Foundation/Foundation.h>

#include <string_view>

#include "Base/ErrorObject.h"
#include "Platform/XPCConnection.h"

namespace korvel::macos {

/// Never nil; see makeCFString for bytes that are not UTF-8.
NSString *makeNSString(std::string_view text);

/// The error as the platform carries it between processes.
NSError *makeNSError(const ErrorObject &error);

/// The interface of the named protocol, which this program must define, with the settings made on
/// it in their order.
NSXPCInterface *makeNSXPCInterface(const XPCInterface &description);

}  // namespace korvel::macos
