#include "Platform/PowerSources.h"

#include <IOKit/ps/IOPSKeys.h>
#include <IOKit/ps/IOPowerSources.h>

#include "macOS/Adapters.h"
#include "macOS/PropertyConversion.h"

namespace korvel::macos {

namespace {

/// The power daemon's sources through IOKit. Each call is a synchronous round trip to the daemon.
class SystemPowerSources final : public PowerSources {
 public:
  HandleRef copyInfo() override { return handle(IOPSCopyPowerSourcesInfo()); }

  PowerSourceList copyList(HandleRef info) override {
    // Kept as an untyped object until its type is known: the array type is a promise of the header,
    // and an element taken from anything else would be a wild pointer.
    const CFTypeRef copied = IOPSCopyPowerSourcesList(borrowed<CFTypeRef>(info));
    PowerSourceList list;
    list.handle = handle(copied);
    list.isArray = copied != nullptr && CFGetTypeID(copied) == CFArrayGetTypeID();
    if (!list.isArray) return list;
    const auto array = static_cast<CFArrayRef>(copied);
    for (CFIndex index = 0; index < CFArrayGetCount(array); ++index) {
      list.elements.push_back(handle(CFArrayGetValueAtIndex(array, index)));
    }
    return list;
  }

  PropertyValue getDescription(HandleRef info, HandleRef source) override {
    return propertyValue(
        IOPSGetPowerSourceDescription(borrowed<CFTypeRef>(info), borrowed<CFTypeRef>(source)));
  }

  void release(HandleRef object) override { CFRelease(borrowed<CFTypeRef>(object)); }
};

}  // namespace

std::unique_ptr<PowerSources> makePowerSources() { return std::make_unique<SystemPowerSources>(); }

}  // namespace korvel::macos
