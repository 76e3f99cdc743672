#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Base/SerialQueue.h"
#include "Logger.h"
#include "Platform/Dispatch.h"
#include "Platform/PowerAssertions.h"

namespace korvel {

using IOPMAssertionID = std::uint32_t;

/// Holds sleep assertions in pairs: one against idle sleep and, behind it, a stronger one against
/// system sleep. Both time out in the system after four hours. Any thread; the bookkeeping has a
/// queue of its own, and the system calls are made outside it.
class IOPMAssertionManager {
 public:
  IOPMAssertionManager(PowerAssertions& powerAssertions, Dispatch& dispatch,
                       UnifiedLog& unifiedLog);

  /// Creates a pair. None when the first could not be created; the second's failure is only logged.
  std::optional<IOPMAssertionID> acquire(const std::string& reason) EXCLUDES(queue);
  /// Releases an assertion and the one paired with it. Bookkeeping is dropped whatever the system
  /// says.
  void release(IOPMAssertionID id) EXCLUDES(queue);
  /// Releases everything held, silently.
  void releaseAll() EXCLUDES(queue);
  /// The assertions held, in order of creation.
  std::vector<IOPMAssertionID> held() EXCLUDES(queue);

 private:
  PowerAssertions& assertions;
  Logger log;
  SerialQueue queue;
  std::vector<IOPMAssertionID> outstanding GUARDED_BY(queue);
  std::map<IOPMAssertionID, IOPMAssertionID> pairedSecondary GUARDED_BY(queue);
};

}  // namespace korvel
