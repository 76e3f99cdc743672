#pragma once

#include <optional>
#include <vector>

#include "Base/PropertyValue.h"
#include "Platform/KernelTypes.h"

namespace korvel {

/// The result of IOPSCopyPowerSourcesList: the array and, borrowed from it, its elements in order.
struct PowerSourceList {
  HandleRef handle = 0;  ///< Released with PowerSources::release; 0: the call gave nothing.
  bool isArray = false;
  std::vector<HandleRef> elements;  ///< Valid until the list and its snapshot are released.
};

/// IOKit's power sources, call for call. Any thread.
class PowerSources {
 public:
  virtual ~PowerSources() = default;
  /// IOPSCopyPowerSourcesInfo(). 0: none. The caller releases the snapshot.
  virtual HandleRef copyInfo() = 0;
  /// IOPSCopyPowerSourcesList(info). The caller releases the list's handle.
  virtual PowerSourceList copyList(HandleRef info) = 0;
  /// IOPSGetPowerSourceDescription(info, source). Absent: none.
  virtual PropertyValue getDescription(HandleRef info, HandleRef source) = 0;
  /// CFRelease of a snapshot or a list.
  virtual void release(HandleRef object) = 0;
};

}  // namespace korvel
