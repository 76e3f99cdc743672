#pragma once

#include "Base/Date.h"

namespace korvel {

/// The calendar clock: goes on while the machine sleeps, and may be set. Any thread.
class WallClock {
 public:
  virtual ~WallClock() = default;
  virtual Date now() = 0;
};

}  // namespace korvel
