#pragma once

#include "Logger.h"
#include "Platform/PowerSettings.h"

namespace korvel {

/// Switches and reads the system-wide SleepDisabled setting. Stateless: the core remembers who
/// set it. Any thread.
class ClamshellSleepController {
 public:
  ClamshellSleepController(PowerSettings& powerSettings, Logger logger)
      : settings(powerSettings), log(logger) {}

  /// Sets it. False: the system refused; logged.
  [[nodiscard]] bool enable();
  /// Clears it. A failure is only logged.
  void disable();
  /// The live setting; false when it cannot be read.
  [[nodiscard]] bool isEnabled();

 private:
  PowerSettings& settings;
  Logger log;
};

}  // namespace korvel
