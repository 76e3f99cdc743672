#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

#include "Platform/KernelTypes.h"

namespace korvel::macos {

/// Owns one reference to a CoreFoundation object. How it came to own it is said where it is made,
/// because the type does not tell: `adopting` what a Create or Copy call gave, `retaining` what a
/// Get call lent.
template <class Ref>
class CFReference {
 public:
  CFReference() = default;
  static CFReference adopting(Ref created) { return CFReference(created); }
  static CFReference retaining(Ref borrowed) {
    if (borrowed != nullptr) CFRetain(borrowed);
    return CFReference(borrowed);
  }
  CFReference(CFReference&& other) noexcept : object(std::exchange(other.object, nullptr)) {}
  CFReference& operator=(CFReference&&) = delete;
  ~CFReference() {
    if (object != nullptr) CFRelease(object);  // CFRelease of nothing is a crash.
  }

  /// Borrowed: valid as long as this reference.
  [[nodiscard]] Ref get() const { return object; }
  explicit operator bool() const { return object != nullptr; }
  /// Hands the reference over; whoever takes it must release it.
  [[nodiscard]] Ref handOver() { return std::exchange(object, nullptr); }

 private:
  explicit CFReference(Ref owned) : object(owned) {}

  Ref object = nullptr;
};

/// A CoreFoundation object as the seam names it; ownership goes as the seam's function says.
inline HandleRef handle(CFTypeRef object) { return reinterpret_cast<HandleRef>(object); }

/// The object behind a handle, borrowed.
template <class Ref>
Ref borrowed(HandleRef object) {
  return reinterpret_cast<Ref>(object);
}

}  // namespace korvel::macos
