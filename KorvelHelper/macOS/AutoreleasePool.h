#pragma once

namespace korvel::macos {

/// Runs `body(context)` inside an autorelease pool of its own. Queues and the bare main run loop
/// promise no pool for a single callback, and a helper that runs for months must not gather what
/// each one left behind.
void runInAutoreleasePool(void (*body)(void* context), void* context);

}  // namespace korvel::macos
