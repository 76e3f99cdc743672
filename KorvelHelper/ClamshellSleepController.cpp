#include "ClamshellSleepController.h"

#include <string_view>

namespace korvel {

namespace {

constexpr std::string_view sleepDisabledKey = "SleepDisabled";

/// A Boolean, or a number that stands for one: other programs have stored either.
bool isTrue(const PropertyValue& value) {
  return value.boolean() == true || value.integer() == 1 || value.real() == 1.0;
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
  return isTrue(settings.copySystemPowerSettings()[sleepDisabledKey]);
}

}  // namespace korvel
