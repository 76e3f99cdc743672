#pragma once

#include <cstdint>

#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Schedule/VirtualTime.h"

namespace virtualmac {

/// Shared by every part of the machine: the journal, the machine's time, and a counter of changes.
/// A part notes each change that another part may depend on; the machine compares the counter
/// instead of asking every part, which keeps a quiet machine almost free.
struct MachineContext {
  Journal& journal;
  Nanoseconds total = 0;  ///< Since the machine was made.
  std::uint64_t revision = 1;

  void noteChange() { ++revision; }
};

}  // namespace virtualmac
