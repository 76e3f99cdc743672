#include <IOKit/IOKitKeys.h>
#include <IOKit/IOKitLib.h>

#import "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Conversion.h"
#include "TinMac/Frameworks/PortRights.h"

using namespace tinmac;

namespace {

/// A dictionary as a kernel may give it that has a key which is no text. The machine has no other
/// way to tell one than a value which is no dictionary.
NSMutableDictionary* makeOddlyKeyed() {
  NSMutableDictionary* made = makeDictionary();
  NSNumber* key = makeInteger(0);
  set(made, key, booleanObject(true));
  [key release];
  return made;
}

void expectName(const io_name_t name, const char* function) {
  if (name == nullptr) trap("a name is missing", function);
}

}  // namespace

TIN_EXPORT const mach_port_t kIOMainPortDefault = MACH_PORT_NULL;

TIN_EXPORT CFMutableDictionaryRef IOServiceMatching(const char* name) {
  if (name == nullptr) return nullptr;
  NSMutableDictionary* matching = makeDictionary();
  NSString* className = makeString(name);
  set(matching, kIOProviderClassKey, className);
  [className release];
  return (CFMutableDictionaryRef)matching;
}

TIN_EXPORT io_service_t IOServiceGetMatchingService(mach_port_t mainPort,
                                                    CFDictionaryRef matching) {
  expectNumber(mainPort, mach_port_t{MACH_PORT_NULL}, __func__);
  if (matching == nullptr) return IO_OBJECT_NULL;
  auto* rules = (NSDictionary*)matching;
  expectKind(rules, [NSDictionary class], __func__);
  const id className = valueFor(rules, kIOProviderClassKey);
  if (entriesOf(rules).size() != 1 || className == nil) {
    trap("services are matched by their class only", __func__);
  }
  const std::string name = textArgument((CFStringRef)className, __func__);
  CFRelease(matching);
  return holdObject(tinServiceMatching(name.c_str()));
}

TIN_EXPORT kern_return_t IOObjectRelease(io_object_t object) {
  dropObject(object, __func__);
  return tinObjectRelease(object);
}

TIN_EXPORT boolean_t IOObjectConformsTo(io_object_t object, const io_name_t className) {
  expectName(className, __func__);
  expectObject(object, __func__);
  return tinObjectConformsTo(object, className) != 0;
}

TIN_EXPORT CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                                     CFAllocatorRef allocator,
                                                     IOOptionBits options) {
  expectDefaultAllocator(allocator, __func__);
  expectNumber(options, IOOptionBits{0}, __func__);
  expectObject(entry, __func__);
  ValueBuilder told;
  tinEntryProperty(entry, textArgument(key, __func__).c_str(), told.sink());
  return (CFTypeRef)told.take();
}

TIN_EXPORT kern_return_t IORegistryEntryCreateCFProperties(io_registry_entry_t entry,
                                                           CFMutableDictionaryRef* properties,
                                                           CFAllocatorRef allocator,
                                                           IOOptionBits options) {
  expectPlace(properties, __func__);
  expectDefaultAllocator(allocator, __func__);
  expectNumber(options, IOOptionBits{0}, __func__);
  expectObject(entry, __func__);
  ValueBuilder told;
  const kern_return_t code = tinEntryProperties(entry, told.sink());
  const id made = told.take();
  if (code == kIOReturnSuccess && isKind(made, [NSDictionary class])) {
    *properties = (CFMutableDictionaryRef)made;
    return code;
  }
  [made release];
  if (code == kIOReturnSuccess) *properties = (CFMutableDictionaryRef)makeOddlyKeyed();
  return code;
}

TIN_EXPORT kern_return_t IORegistryEntryCreateIterator(io_registry_entry_t entry,
                                                       const io_name_t plane, IOOptionBits options,
                                                       io_iterator_t* iterator) {
  expectName(plane, __func__);
  expectPlace(iterator, __func__);
  expectObject(entry, __func__);
  io_iterator_t created = IO_OBJECT_NULL;
  const kern_return_t code = tinEntryIterator(entry, plane, options, &created);
  if (code == kIOReturnSuccess) *iterator = holdObject(created);
  return code;
}

TIN_EXPORT io_object_t IOIteratorNext(io_iterator_t iterator) {
  expectObject(iterator, __func__);
  return holdObject(tinIteratorNext(iterator));
}
