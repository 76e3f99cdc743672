#pragma once

#include <os/lock.h>

namespace tinmac {

/// Holds a lock for a scope.
class Holding {
 public:
  explicit Holding(os_unfair_lock& taken) : lock(taken) { os_unfair_lock_lock(&lock); }
  Holding(const Holding&) = delete;
  Holding& operator=(const Holding&) = delete;
  ~Holding() { os_unfair_lock_unlock(&lock); }

 private:
  os_unfair_lock& lock;
};

}  // namespace tinmac
