#pragma once

#include <string_view>

#include "Base/PropertyValue.h"
#include "Platform/KernelTypes.h"

namespace korvel {

/// IORegistryEntryCreateIterator's option for walking all descendants.
inline constexpr std::uint32_t ioRegistryIterateRecursively = 1;

/// The I/O registry, call for call. Any thread.
class IORegistry {
 public:
  virtual ~IORegistry() = default;
  /// IOServiceGetMatchingService(kIOMainPortDefault, IOServiceMatching(className)). 0: none.
  virtual ObjectRef getMatchingService(std::string_view className) = 0;
  /// IORegistryEntryCreateCFProperty(entry, key, kCFAllocatorDefault, 0). Absent: none.
  virtual PropertyValue createProperty(ObjectRef entry, std::string_view key) = 0;
  /// IORegistryEntryCreateCFProperties(entry, &properties, kCFAllocatorDefault, 0). A dictionary on
  /// success; any other value stands for one with keys that are not text.
  virtual KernReturn createProperties(ObjectRef entry, PropertyValue& properties) = 0;
  /// IORegistryEntryCreateIterator(entry, plane, options, &iterator).
  virtual KernReturn createIterator(ObjectRef entry, std::string_view plane, std::uint32_t options,
                                    ObjectRef& iterator) = 0;
  /// IOIteratorNext(iterator). 0: the end.
  virtual ObjectRef iteratorNext(ObjectRef iterator) = 0;
  /// IOObjectConformsTo(object, className).
  virtual bool conformsTo(ObjectRef object, std::string_view className) = 0;
  /// IOObjectRelease(object), for services, entries and iterators.
  virtual KernReturn objectRelease(ObjectRef object) = 0;
};

}  // namespace korvel
