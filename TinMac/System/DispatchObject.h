#pragma once

#include <cstdint>
#include <mutex>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tinmac {

using DispatchFunction = void (*)(void* context);

/// An object of libdispatch. The program's references and those of pending work are counted apart:
/// the object goes when both are gone. Any thread.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): the object deletes itself
class DispatchObject {
 public:
  DispatchObject(const DispatchObject&) = delete;
  DispatchObject& operator=(const DispatchObject&) = delete;

  /// The program's references. One too many traps.
  virtual void retain();
  virtual void release();

  /// References of pending work.
  void hold();
  void letGo();

  virtual void setContext(void* value);
  void setFinalizer(DispatchFunction function);
  [[nodiscard]] void* context() const;
  virtual void activate();

  [[nodiscard]] const char* className() const { return name; }

 protected:
  /// `className` is the books' name.
  explicit DispatchObject(const char* className);
  virtual ~DispatchObject();

  /// The program's last reference went.
  virtual void abandoned() {}
  /// The last reference of all went: the object deletes itself, now or later.
  virtual void dispose() = 0;

  /// Runs the finalizer, if there is one and the context is not null.
  void finalize();
  [[nodiscard]] bool hasFinalizer() const;

 private:
  const char* name;
  mutable std::mutex countMutex;
  std::int64_t programReferences = 1;
  /// The program's references together are one of these.
  std::int64_t references = 1;
  void* contextValue = nullptr;
  DispatchFunction finalizer = nullptr;
};

/// The living object at an address that the program gave; traps, with the call's name, when there
/// is none.
DispatchObject& livingObject(void* address, const char* call);

[[noreturn]] void refuseObject(const char* call, const char* className);

template <class Object>
Object& living(void* address, const char* call) {
  DispatchObject& found = livingObject(address, call);
  auto* const object = dynamic_cast<Object*>(&found);
  if (object == nullptr) refuseObject(call, found.className());
  return *object;
}

/// The address by which the program knows an object.
void* programAddress(DispatchObject& object);

/// A reference of pending work.
template <class Object>
class Held {
 public:
  explicit Held(Object& object) : held(&object) { held->hold(); }
  Held(const Held& other) : held(other.held) { held->hold(); }
  Held& operator=(const Held&) = delete;
  ~Held() { held->letGo(); }
  Object* operator->() const { return held; }
  Object& operator*() const { return *held; }

 private:
  Object* held;
};

}  // namespace tinmac
