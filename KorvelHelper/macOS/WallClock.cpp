#include "Platform/WallClock.h"

#include <CoreFoundation/CoreFoundation.h>

#include "macOS/Adapters.h"

namespace korvel::macos {

namespace {

/// The calendar clock, in the platform's own count of seconds since 2001.
class SystemWallClock final : public WallClock {
 public:
  Date now() override { return Date{CFAbsoluteTimeGetCurrent()}; }
};

}  // namespace

std::unique_ptr<WallClock> makeWallClock() { return std::make_unique<SystemWallClock>(); }

}  // namespace korvel::macos
