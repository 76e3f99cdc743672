#pragma once

#include <utility>

namespace korvel {

/// Owns one handle that `Owner` gave, and gives it back by `Release` at the end of a scope. 0 is no
/// handle.
template <class Owner, class Handle, auto Release>
class Scoped {
 public:
  explicit Scoped(Owner& from, Handle given = 0) : owner(from), handle(given) {}
  ~Scoped() {
    if (handle != 0) (owner.*Release)(handle);
  }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;

  [[nodiscard]] Handle get() const { return handle; }
  explicit operator bool() const { return handle != 0; }
  /// The place for a call that gives its object through a reference.
  [[nodiscard]] Handle& slot() { return handle; }
  /// Gives the handle away: the caller owns it then.
  [[nodiscard]] Handle take() { return std::exchange(handle, 0); }

 private:
  Owner& owner;
  Handle handle;
};

}  // namespace korvel
