#include <CoreFoundation/CoreFoundation.h>

#include "VirtualMac/Tools/PropertyListText.h"
#include "macOS/CFReference.h"
#include "macOS/PropertyConversion.h"

namespace virtualmac {

std::optional<korvel::PropertyValue> parsedPropertyList(std::string_view xml) {
  using korvel::macos::CFReference;
  const auto data = CFReference<CFDataRef>::adopting(
      CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(xml.data()),
                   static_cast<CFIndex>(xml.size())));
  const auto parsed = CFReference<CFTypeRef>::adopting(CFPropertyListCreateWithData(
      kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
  if (!parsed) return std::nullopt;
  return korvel::macos::propertyValue(parsed.get());
}

}  // namespace virtualmac
