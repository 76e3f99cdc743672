#include "Platform/PowerAssertions.h"

#include <IOKit/pwr_mgt/IOPMLib.h>

#include <type_traits>

#include "macOS/Adapters.h"
#include "macOS/PropertyConversion.h"

namespace korvel::macos {

namespace {

static_assert(std::is_same_v<IOPMAssertionID, std::uint32_t>);

/// Power assertions through IOKit. Identifiers are counted by the power daemon for each creation.
class SystemPowerAssertions final : public PowerAssertions {
 public:
  KernReturn createWithProperties(const PropertyValue& properties, std::uint32_t& id) override {
    const PropertyValue::Dictionary* entries = properties.dictionary();
    if (entries == nullptr) return kIOReturnBadArgument;
    IOPMAssertionID created = kIOPMNullAssertionID;
    const IOReturn code =
        IOPMAssertionCreateWithProperties(makeCFDictionary(*entries).get(), &created);
    if (code == kIOReturnSuccess) id = created;
    return code;
  }

  KernReturn release(std::uint32_t id) override { return IOPMAssertionRelease(id); }
};

}  // namespace

std::unique_ptr<PowerAssertions> makePowerAssertions() {
  return std::make_unique<SystemPowerAssertions>();
}

}  // namespace korvel::macos
