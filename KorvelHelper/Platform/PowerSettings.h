#pragma once

#include <string_view>

#include "Base/PropertyValue.h"
#include "Platform/KernelTypes.h"

namespace korvel {

/// The system-wide power settings, call for call. Any thread.
class PowerSettings {
 public:
  virtual ~PowerSettings() = default;
  /// IOPMSetSystemPowerSetting(key, value ? kCFBooleanTrue : kCFBooleanFalse).
  virtual KernReturn setSystemPowerSetting(std::string_view key, bool value) = 0;
  /// IOPMCopySystemPowerSettings(). Absent: nothing was ever stored.
  virtual PropertyValue copySystemPowerSettings() = 0;
};

}  // namespace korvel
