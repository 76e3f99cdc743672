#include "Platform/SmartChargeRuntime.h"

#import <Foundation/Foundation.h>
#include <dlfcn.h>
#include <objc/runtime.h>

#include "macOS/Adapters.h"
#import "macOS/FoundationConversion.h"
#include "macOS/PropertyConversion.h"

namespace korvel::macos {

namespace {

static_assert(RTLD_NOW == dlopenNow);

// The exact prototypes. alloc and init work on plain addresses: ARC does not know the ownership
// rules of a function pointer, and would retain a result that already belongs to the caller.
using AllocFunction = void* (*)(void* cls, SEL selector);
using InitFunction = void* (*)(void* object, SEL selector, NSString* clientName);
using BooleanFunction = BOOL (*)(id object, SEL selector);
using Int32Function = std::int32_t (*)(id object, SEL selector, NSError* __autoreleasing* error);
using ObjectFunction = id (*)(id object, SEL selector, NSError* __autoreleasing* error);
using SetUInt8Function = BOOL (*)(id object, SEL selector, std::uint8_t value,
                                  NSError* __autoreleasing* error);

void* address(HandleRef object) { return reinterpret_cast<void*>(object); }
id objectFor(HandleRef object) { return (__bridge id)address(object); }
Class classFor(HandleRef cls) { return (__bridge Class)address(cls); }
Method methodFor(HandleRef method) { return reinterpret_cast<Method>(method); }

SEL selectorFor(std::string_view name) { return sel_registerName(std::string(name).c_str()); }

ErrorSlot errorText(NSString* description) {
  const std::optional<std::string> text = utf8Text((__bridge CFStringRef)description);
  return text ? text : std::string();
}

/// Calls `call(slot)` with an empty error slot and turns what it left there into text. An exception
/// is the runtime's other way to report a failure; nothing above could catch it, so it becomes the
/// error's text here, and the result is the type's zero.
template <class Result, class Call>
Result callWithErrorSlot(ErrorSlot& error, Call call) {
  error.reset();
  @autoreleasepool {
    @try {
      NSError* __autoreleasing failure = nil;
      Result result = call(&failure);
      if (failure != nil) error = errorText(failure.localizedDescription);
      return result;
    } @catch (NSException* raised) {
      error = errorText(raised.reason);
      return Result();
    }
  }
}

/// The same for a call without an error slot.
template <class Result, class Call>
Result callGuarded(Call call) {
  ErrorSlot unheard;
  return callWithErrorSlot<Result>(unheard, [&](NSError* __autoreleasing*) { return call(); });
}

template <class Function>
Function implementation(id object, SEL selector) {
  return reinterpret_cast<Function>([object methodForSelector:selector]);
}

/// The Objective-C runtime. System frameworks have no file at their path, only a place in the
/// shared cache, so nothing looks for one before dlopen; nothing is ever closed.
class ObjectRuntime final : public SmartChargeRuntime {
 public:
  HandleRef dlopen(std::string_view path, int mode) override {
    return reinterpret_cast<HandleRef>(::dlopen(std::string(path).c_str(), mode));
  }

  HandleRef classFromString(std::string_view name) override {
    @autoreleasepool {
      return handle((__bridge CFTypeRef)NSClassFromString(makeNSString(name)));
    }
  }

  bool isClass(HandleRef object) override {
    @autoreleasepool {
      return object_isClass(objectFor(object));
    }
  }

  HandleRef getClassMethod(HandleRef cls, std::string_view selector) override {
    return reinterpret_cast<HandleRef>(class_getClassMethod(classFor(cls), selectorFor(selector)));
  }

  HandleRef getInstanceMethod(HandleRef cls, std::string_view selector) override {
    return reinterpret_cast<HandleRef>(
        class_getInstanceMethod(classFor(cls), selectorFor(selector)));
  }

  HandleRef callAlloc(HandleRef method, HandleRef cls) override {
    const auto alloc = reinterpret_cast<AllocFunction>(method_getImplementation(methodFor(method)));
    return callGuarded<HandleRef>([&] {
      return reinterpret_cast<HandleRef>(alloc(address(cls), method_getName(methodFor(method))));
    });
  }

  HandleRef callInit(HandleRef method, HandleRef object, std::string_view clientName) override {
    const auto init = reinterpret_cast<InitFunction>(method_getImplementation(methodFor(method)));
    return callGuarded<HandleRef>([&] {
      return reinterpret_cast<HandleRef>(
          init(address(object), method_getName(methodFor(method)), makeNSString(clientName)));
    });
  }

  bool respondsToSelector(HandleRef object, std::string_view selector) override {
    return callGuarded<bool>(
        [&] { return [objectFor(object) respondsToSelector:selectorFor(selector)]; });
  }

  bool callBoolean(HandleRef object, std::string_view selector) override {
    return callGuarded<bool>([&] {
      const SEL name = selectorFor(selector);
      return implementation<BooleanFunction>(objectFor(object), name)(objectFor(object), name);
    });
  }

  std::int32_t callInt32(HandleRef object, std::string_view selector, ErrorSlot& error) override {
    return callWithErrorSlot<std::int32_t>(error, [&](NSError* __autoreleasing* slot) {
      const SEL name = selectorFor(selector);
      return implementation<Int32Function>(objectFor(object), name)(objectFor(object), name, slot);
    });
  }

  PropertyValue callObject(HandleRef object, std::string_view selector, ErrorSlot& error) override {
    return callWithErrorSlot<PropertyValue>(error, [&](NSError* __autoreleasing* slot) {
      const SEL name = selectorFor(selector);
      const id result =
          implementation<ObjectFunction>(objectFor(object), name)(objectFor(object), name, slot);
      return propertyValue((__bridge CFTypeRef)result);
    });
  }

  bool callSetUInt8(HandleRef object, std::string_view selector, std::uint8_t value,
                    ErrorSlot& error) override {
    return callWithErrorSlot<bool>(error, [&](NSError* __autoreleasing* slot) {
      const SEL name = selectorFor(selector);
      return implementation<SetUInt8Function>(objectFor(object), name)(objectFor(object), name,
                                                                       value, slot);
    });
  }

  void release(HandleRef object) override { CFRelease(borrowed<CFTypeRef>(object)); }
};

}  // namespace

std::unique_ptr<SmartChargeRuntime> makeSmartChargeRuntime() {
  return std::make_unique<ObjectRuntime>();
}

}  // namespace korvel::macos
