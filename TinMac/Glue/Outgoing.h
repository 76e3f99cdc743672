#pragma once

#include "TinMac/Glue/Values.h"

namespace tinmac {

/// The one value that this thread's frameworks told for the call that follows. Traps when there is
/// none, or more than one.
korvel::PropertyValue takeOutgoingValue();

}  // namespace tinmac
