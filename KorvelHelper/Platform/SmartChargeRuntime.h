#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/PropertyValue.h"
#include "Platform/KernelTypes.h"

namespace korvel {

/// dlopen's mode that binds everything at once.
inline constexpr int dlopenNow = 2;

/// An error out-parameter after a call: the error's localized description, or nothing.
using ErrorSlot = std::optional<std::string>;

/// The object runtime as the native charge limit needs it: look-ups by name and calls through
/// implementation pointers with exact argument types. One caller at a time.
class SmartChargeRuntime {
 public:
  virtual ~SmartChargeRuntime() = default;
  /// dlopen(path, mode). 0: not loaded.
  virtual HandleRef dlopen(std::string_view path, int mode) = 0;
  /// NSClassFromString(name). 0: none.
  virtual HandleRef classFromString(std::string_view name) = 0;
  /// object_isClass(object).
  virtual bool isClass(HandleRef object) = 0;
  /// class_getClassMethod(cls, selector). 0: none.
  virtual HandleRef getClassMethod(HandleRef cls, std::string_view selector) = 0;
  /// class_getInstanceMethod(cls, selector). 0: none.
  virtual HandleRef getInstanceMethod(HandleRef cls, std::string_view selector) = 0;
  /// The alloc implementation of `method`, called on `cls`. The result belongs to the caller.
  virtual HandleRef callAlloc(HandleRef method, HandleRef cls) = 0;
  /// The init implementation of `method`, called on `object` with a client name. Takes `object` and
  /// gives the object that replaces it, or 0; the result belongs to the caller.
  virtual HandleRef callInit(HandleRef method, HandleRef object, std::string_view clientName) = 0;
  /// [object respondsToSelector:selector].
  virtual bool respondsToSelector(HandleRef object, std::string_view selector) = 0;
  /// A method without arguments that returns a Boolean.
  virtual bool callBoolean(HandleRef object, std::string_view selector) = 0;
  /// A method with an error slot that returns a 32-bit integer.
  virtual std::int32_t callInt32(HandleRef object, std::string_view selector, ErrorSlot& error) = 0;
  /// A method with an error slot that returns an object. Absent: nil.
  virtual PropertyValue callObject(HandleRef object, std::string_view selector,
                                   ErrorSlot& error) = 0;
  /// A method with an 8-bit unsigned argument and an error slot that returns a Boolean.
  virtual bool callSetUInt8(HandleRef object, std::string_view selector, std::uint8_t value,
                            ErrorSlot& error) = 0;
  /// Drops the caller's ownership of an object.
  virtual void release(HandleRef object) = 0;
};

}  // namespace korvel
