#include "ClamshellSleepController.h"

#include <optional>
#include <string_view>

namespace korvel {

namespace {

constexpr std::string_view sleepDisabledKey = "SleepDisabled";

/// Booleans, and the numbers that stand for them: other programs have stored either.
std::optional<bool> asBoolean(const PropertyValue& value) {
  if (const auto boolean = value.boolean()) return boolean;
  const auto integer = value.integer();
  const auto real = value.real();
  if (integer == 0 || real == 0.0) return false;
  if (integer == 1 || real == 1.0) return true;
  return std::nullopt;
}

}  // namespace

bool ClamshellSleepController::enable() {
  const KernReturn code = settings.setSystemPowerSetting(sleepDisabledKey, true);
  if (code != kernSuccess) {
    log.fault(
        "IOPMSetSystemPowerSetting(SleepDisabled, true) failed: %{public}d — clamshell keep-awake "
        "NOT active",
        code);
    return false;
  }
  log.log("SleepDisabled=1 set — system will stay awake through lid-close");
  return true;
}

void ClamshellSleepController::disable() {
  const KernReturn code = settings.setSystemPowerSetting(sleepDisabledKey, false);
  if (code != kernSuccess) {
    log.error(
        "IOPMSetSystemPowerSetting(SleepDisabled, false) failed: %{public}d — will reset on "
        "reboot; consider `sudo pmset -a disablesleep 0`",
        code);
    return;
  }
  log.log("SleepDisabled=0 cleared — normal lid-close sleep restored");
}

bool ClamshellSleepController::isEnabled() {
  return asBoolean(settings.copySystemPowerSettings()[sleepDisabledKey]).value_or(false);
}

}  // namespace korvel
