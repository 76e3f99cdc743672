#include "TinMac/System/Exceptions.h"

#include <cxxabi.h>
#include <unwind.h>

#include <atomic>
#include <cstring>
#include <typeinfo>

#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Trap.h"

extern "C" char tinPersonality[] __asm__("__gxx_personality_v0");

namespace tinmac {

namespace {

/// An Objective-C exception is a C++ exception of a pointer to this class, so that one unwinder and
/// one personality serve both languages.
class ThrownObject {};

std::atomic<void (*)(void*)> retainObject = nullptr;
std::atomic<void (*)(void*)> releaseObject = nullptr;

void* objectAt(const void* thrown) {
  void* object = nullptr;
  std::memcpy(&object, thrown, sizeof(object));
  return object;
}

void dropThrown(void* thrown) { releaseObject.load()(objectAt(thrown)); }

[[noreturn]] void throwObject(void* object) {
  if (object == nullptr) trap("objc_exception_throw", "nil");
  if (retainObject.load() == nullptr) trap("objc_exception_throw", "nothing keeps thrown objects");
  retainObject.load()(object);
  void* const thrown = abi::__cxa_allocate_exception(sizeof(object));
  std::memcpy(thrown, &object, sizeof(object));
  abi::__cxa_throw(thrown, const_cast<std::type_info*>(&typeid(ThrownObject*)), dropThrown);
}

/// The object of an Objective-C exception; of a C++ exception, what C++ gives.
void* beginCatch(void* header) {
  void* const caught = abi::__cxa_begin_catch(header);
  const std::type_info* const type = abi::__cxa_current_exception_type();
  if (type == nullptr || *type != typeid(ThrownObject*)) return caught;
  // A clause that catches everything is given the pointer's place, others the pointer.
  return objectAt(static_cast<_Unwind_Exception*>(header) + 1);
}

}  // namespace

void keepExceptionsWith(void (*retain)(void* object), void (*release)(void* object)) {
  releaseObject = release;
  retainObject = retain;
}

std::span<const Export> exceptionExports() {
  static const Export table[] = {
      {"_objc_exception_throw", code(throwObject)},
      {"_objc_begin_catch", code(beginCatch)},
      {"_objc_end_catch", code(abi::__cxa_end_catch)},
      {"_OBJC_EHTYPE_$_NSException", const_cast<std::type_info*>(&typeid(ThrownObject*))},
      {"___objc_personality_v0", tinPersonality},
  };
  return table;
}

}  // namespace tinmac
