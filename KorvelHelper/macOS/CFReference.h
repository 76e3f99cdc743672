#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

#include "Platform/KernelTypes.h"

namespace korvel::macos {

/// Owns one reference to a CoreFoundation object. The type does not tell how it came to own
/// it, so its maker does: `adopting` takes what a Create or Copy call gave, `retaining` adds a
/// reference to what a Get call lent.
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
  /// Hands the reference over; the caller must release it.
  [[nodiscard]] Ref handOver() { return std::exchange(object, nullptr); }

 private:
  explicit CFReference(Ref owned) : object(owned) {}

  Ref object = nullptr;
};

/// A CoreFoundation object as the seam names it; the seam's function says who owns it.
inline HandleRef handle(CFTypeRef object) { return reinterpret_cast<HandleRef>(object); }

/// The object behind a handle, borrowed.
template <class Ref>
Ref borrowed(HandleRef object) {
  return reinterpret_cast<Ref>(object);
}

}  // namespace korvel::macos
