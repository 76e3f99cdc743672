#pragma once

namespace tinmac {

/// Says how an Objective-C object is kept while it is thrown. Set once, before the first throw: an
/// exception without a keeper traps.
void keepExceptionsWith(void (*retain)(void* object), void (*release)(void* object));

}  // namespace tinmac
