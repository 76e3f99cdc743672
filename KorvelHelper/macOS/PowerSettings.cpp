#include "Platform/PowerSettings.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOReturn.h>

#include "macOS/Adapters.h"
#include "macOS/PropertyConversion.h"

// IOKit exports both; no public header declares them.
extern "C" IOReturn IOPMSetSystemPowerSetting(CFStringRef key, CFTypeRef value);
extern "C" CFDictionaryRef IOPMCopySystemPowerSettings(void);

namespace korvel::macos {

namespace {

/// The system power settings through IOKit. Setting stores a preference that the power daemon
/// applies soon after; copying gives the stored preference.
class SystemPowerSettings final : public PowerSettings {
 public:
  KernReturn setSystemPowerSetting(std::string_view key, bool value) override {
    return IOPMSetSystemPowerSetting(makeCFString(key).get(),
                                     value ? kCFBooleanTrue : kCFBooleanFalse);
  }

  PropertyValue copySystemPowerSettings() override {
    return propertyValue(
        CFReference<CFDictionaryRef>::adopting(IOPMCopySystemPowerSettings()).get());
  }
};

}  // namespace

std::unique_ptr<PowerSettings> makePowerSettings() {
  return std::make_unique<SystemPowerSettings>();
}

}  // namespace korvel::macos
