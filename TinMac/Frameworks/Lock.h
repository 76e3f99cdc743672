#pragma once

#include <os/lock.h>

namespace tinmac {

/// Holds a lock for a scope.
class Locked {
 public:
  explicit Locked(os_unfair_lock& taken) : lock(taken) { os_unfair_lock_lock(&lock); }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;
  ~Locked() { os_unfair_lock_unlock(&lock); }

 private:
  os_unfair_lock& lock;
};

}  // namespace tinmac
