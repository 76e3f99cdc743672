#pragma once

#import "TinMac/Frameworks/Objects.h"

/// The objects that living connections hold. The machine knows each by a context, and gives it back
/// when its connection lets go; at the end of the process all that are left are let go. Any thread.
namespace tinmac {

/// The context of a new hold on the object, which is retained.
void* keep(id object);
/// The object, with one reference that is the caller's; nil: it was let go.
id claim(void* context);
void letGo(void* context);

}  // namespace tinmac
