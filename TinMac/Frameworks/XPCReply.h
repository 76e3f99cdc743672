#pragma once

#include <string_view>

#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Objects.h"

namespace tinmac {

/// A block on the heap with one reference that is the caller's. Called with the arguments that
/// `types` describe, on any thread, it sends them as the answer; released uncalled, it drops the
/// answer. `types` and `selector` must stay. Traps when it is called twice, or when the types have
/// what no answer may hold.
id makeReplyBlock(TinReply* reply, std::string_view types, const char* selector);

}  // namespace tinmac
