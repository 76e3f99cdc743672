#pragma once

#import "TinMac/Frameworks/Objects.h"

/// Weak references: each place is emptied when its object's last owner goes. Any thread.
namespace tinmac {

/// Empties every place that refers to the object. Called before its dealloc.
void emptyWeakPlaces(id object);
/// False: the object's last owner is gone, and it was not retained.
bool retainIfOwned(id object);

}  // namespace tinmac

/// The object that the place refers to, with one reference that is the caller's; nil: it is gone.
TIN_EXPORT id objc_loadWeakRetained(id* place);
