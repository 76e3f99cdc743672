#include "Platform/IORegistry.h"

#include <IOKit/IOKitLib.h>

#include <string>

#include "macOS/Adapters.h"
#include "macOS/PropertyConversion.h"

namespace korvel::macos {

namespace {

static_assert(kIORegistryIterateRecursively == ioRegistryIterateRecursively);

/// Whether a name fits into the fixed array that a call reads it into.
bool fitsIOName(std::string_view name) { return name.size() < sizeof(io_name_t); }

/// The registry through IOKit. Objects are Mach port rights that the caller releases; property
/// containers are converted and released here.
class KernelRegistry final : public IORegistry {
 public:
  ObjectRef getMatchingService(std::string_view className) override {
    return IOServiceGetMatchingService(kIOMainPortDefault,
                                       IOServiceMatching(std::string(className).c_str()));
  }

  PropertyValue createProperty(ObjectRef entry, std::string_view key) override {
    const auto property = CFReference<CFTypeRef>::adopting(
        IORegistryEntryCreateCFProperty(entry, makeCFString(key).get(), kCFAllocatorDefault, 0));
    return propertyValue(property.get());
  }

  KernReturn createProperties(ObjectRef entry, PropertyValue& properties) override {
    CFMutableDictionaryRef created = nullptr;
    const kern_return_t code =
        IORegistryEntryCreateCFProperties(entry, &created, kCFAllocatorDefault, 0);
    const auto dictionary = CFReference<CFMutableDictionaryRef>::adopting(created);
    if (code == kIOReturnSuccess) properties = propertyValue(dictionary.get());
    return code;
  }

  KernReturn createIterator(ObjectRef entry, std::string_view plane, std::uint32_t options,
                            ObjectRef& iterator) override {
    if (!fitsIOName(plane)) return kIOReturnBadArgument;
    io_iterator_t created = IO_OBJECT_NULL;
    const kern_return_t code =
        IORegistryEntryCreateIterator(entry, std::string(plane).c_str(), options, &created);
    if (code == kIOReturnSuccess) iterator = created;
    return code;
  }

  ObjectRef iteratorNext(ObjectRef iterator) override { return IOIteratorNext(iterator); }

  bool conformsTo(ObjectRef object, std::string_view className) override {
    return fitsIOName(className) && IOObjectConformsTo(object, std::string(className).c_str()) != 0;
  }

  KernReturn objectRelease(ObjectRef object) override { return IOObjectRelease(object); }
};

}  // namespace

std::unique_ptr<IORegistry> makeIORegistry() { return std::make_unique<KernelRegistry>(); }

}  // namespace korvel::macos
