#include "TinMac/System/DispatchObject.h"

#include <set>
#include <string>

#include "TinMac/System/Books.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

/// Every living object by its address, so that a dead one is told from a living one.
struct Registry {
  std::mutex mutex;
  std::set<void*> addresses;
};

Registry& registry() {
  static auto* const only = new Registry;
  return *only;
}

}  // namespace

DispatchObject::DispatchObject(const char* className) : name(className) {
  const std::lock_guard lock(registry().mutex);
  registry().addresses.insert(this);
  countObjects(name, 1);
}

DispatchObject::~DispatchObject() {
  const std::lock_guard lock(registry().mutex);
  registry().addresses.erase(this);
  countObjects(name, -1);
}

void DispatchObject::retain() {
  const std::lock_guard lock(countMutex);
  if (programReferences == 0) trap("dispatch_retain of an object without references", name);
  ++programReferences;
}

void DispatchObject::release() {
  {
    const std::lock_guard lock(countMutex);
    if (programReferences == 0) trap("dispatch_release without a reference", name);
    if (--programReferences > 0) return;
  }
  abandoned();
  letGo();
}

void DispatchObject::hold() {
  const std::lock_guard lock(countMutex);
  ++references;
}

void DispatchObject::letGo() {
  {
    const std::lock_guard lock(countMutex);
    if (--references > 0) return;
  }
  dispose();
}

void DispatchObject::setContext(void* value) {
  const std::lock_guard lock(countMutex);
  contextValue = value;
}

void DispatchObject::setFinalizer(DispatchFunction function) {
  const std::lock_guard lock(countMutex);
  finalizer = function;
}

void* DispatchObject::context() const {
  const std::lock_guard lock(countMutex);
  return contextValue;
}

void DispatchObject::activate() { refuseObject("dispatch_activate", name); }

void DispatchObject::finalize() {
  if (hasFinalizer()) finalizer(context());
}

bool DispatchObject::hasFinalizer() const {
  const std::lock_guard lock(countMutex);
  return finalizer != nullptr && contextValue != nullptr;
}

DispatchObject& livingObject(void* address, const char* call) {
  {
    const std::lock_guard lock(registry().mutex);
    if (registry().addresses.contains(address)) return *static_cast<DispatchObject*>(address);
  }
  trap("not a living dispatch object", call);
}

void refuseObject(const char* call, const char* className) {
  trap("a dispatch object of the wrong class", std::string(call) + " of a " + className);
}

void* programAddress(DispatchObject& object) { return &object; }

}  // namespace tinmac
