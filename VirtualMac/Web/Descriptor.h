#pragma once

#include <unistd.h>

#include <utility>

namespace virtualmac {

/// Owns a file's or a socket's descriptor; -1: none.
class Descriptor {
 public:
  explicit Descriptor(int owned = -1) : handle(owned) {}
  Descriptor(Descriptor&& other) noexcept : handle(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(handle, other.handle);
    return *this;
  }
  ~Descriptor() {
    if (handle >= 0) ::close(handle);
  }

  [[nodiscard]] int get() const { return handle; }
  int release() { return std::exchange(handle, -1); }

 private:
  int handle;
};

}  // namespace virtualmac
