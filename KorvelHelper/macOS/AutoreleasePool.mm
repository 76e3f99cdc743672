#include "macOS/AutoreleasePool.h"

namespace korvel::macos {

void runInAutoreleasePool(void (*body)(void* context), void* context) {
  @autoreleasepool {
    body(context);
  }
}

}  // namespace korvel::macos
