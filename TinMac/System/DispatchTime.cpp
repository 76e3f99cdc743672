#include "TinMac/System/DispatchTime.h"

#include <algorithm>
#include <limits>
#include <string>

#include "TinMac/System/Host.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

std::int64_t uptimeOf(DispatchTime time) {
  if (time == timeNow) return host().uptime();
  // A Mac marks the wall clock's moments with the highest bit.
  if (time > static_cast<DispatchTime>(std::numeric_limits<std::int64_t>::max())) {
    trap("a moment of dispatch that is not on the uptime clock", std::to_string(time));
  }
  return static_cast<std::int64_t>(time);
}

DispatchTime timeAfter(DispatchTime when, std::int64_t nanoseconds) {
  if (when == timeForever) return timeForever;
  const std::int64_t start = uptimeOf(when);
  if (nanoseconds > std::numeric_limits<std::int64_t>::max() - start) return timeForever;
  // 0 means "now".
  return static_cast<DispatchTime>(std::max<std::int64_t>(start + nanoseconds, 1));
}

}  // namespace tinmac
