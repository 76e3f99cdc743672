#include <string>
#include <utility>

#include "TinMac/Frameworks/BelowServices.h"
#import "TinMac/Frameworks/Conversion.h"
#import "TinMac/Frameworks/Runtime.h"
#import "TinMac/Frameworks/SmartCharge.h"

namespace tinmac {

namespace {

/// The library's errors are known by their text alone.
constexpr std::string_view errorDomain = "PowerUI";
constexpr std::string_view descriptionKey = "NSLocalizedDescription";

void fillSlot(void* context, const char* description, std::size_t length) {
  auto* slot = static_cast<NSError**>(context);
  if (description == nullptr || slot == nullptr) return;
  NSMutableDictionary* details = makeDictionary();
  NSString* text = makeString({description, length});
  set(details, descriptionKey, text);
  [text release];
  *slot = autoreleased(makeError(errorDomain, 0, details));
  [details release];
}

id alloc(Class cls, SEL selector) {
  const std::uint64_t name = tinPowerUIAlloc(loadedMethod(cls, selector), nameOfLoaded(cls));
  return name == 0 ? nil : (id)makeLoaded(cls, name);
}

/// Takes the object that it is called on.
id initWithText(TinLoadedObject* object, SEL selector, NSString* text) {
  expectKind(text, [NSString class], nameOf(selector));
  const Class cls = object_getClass((id)object);
  const std::uint64_t before = std::exchange(object->name, 0);
  release((id)object);
  const std::uint64_t name =
      tinPowerUIInit(loadedMethod(cls, selector), before, std::string(utf8(text)).c_str());
  return name == 0 ? nil : (id)makeLoaded(cls, name);
}

BOOL boolean(TinLoadedObject* object, SEL selector) {
  return tinPowerUIBoolean(object->name, nameOf(selector)) != 0;
}

std::int32_t int32WithError(TinLoadedObject* object, SEL selector, NSError** error) {
  return tinPowerUIInt32(object->name, nameOf(selector), fillSlot, error);
}

id objectWithError(TinLoadedObject* object, SEL selector, NSError** error) {
  ValueBuilder told;
  tinPowerUIObject(object->name, nameOf(selector), told.sink(), fillSlot, error);
  return autoreleased(told.take());
}

BOOL setUInt8WithError(TinLoadedObject* object, SEL selector, std::uint8_t value, NSError** error) {
  return tinPowerUISetUInt8(object->name, nameOf(selector), value, fillSlot, error) != 0;
}

void unknown(TinLoadedObject* /*object*/, SEL selector) {
  trap("a method is called whose prototype nobody knows", nameOf(selector));
}

struct KnownMethod {
  std::string_view selector;
  IMP implementation;
};

template <class Function>
IMP imp(Function* function) {
  return reinterpret_cast<IMP>(function);
}

}  // namespace

IMP loadedImplementation(SEL selector) {
  static const KnownMethod methods[] = {
      {"alloc", imp(alloc)},
      {"initWithClientName:", imp(initWithText)},
      {"isMCLSupported", imp(boolean)},
      {"isMCLCurrentlyEnabled:", imp(unknown)},
      {"getMCLLimitWithError:", imp(int32WithError)},
      {"availableChargeLimitsWithError:", imp(objectWithError)},
      {"setMCLLimit:error:", imp(setUInt8WithError)},
  };
  for (const KnownMethod& method : methods) {
    if (method.selector == nameOf(selector)) return method.implementation;
  }
  return nullptr;
}

}  // namespace tinmac
