#pragma once

#include <memory>
#include <utility>

#include "Base/Annotations.h"

namespace korvel {

/// A platform's plain, non-recursive mutual-exclusion lock.
class LockPrimitive {
 public:
  virtual ~LockPrimitive() = default;
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

/// A plain non-recursive lock that the compiler knows as a guard.
class CAPABILITY("lock") Lock {
 public:
  explicit Lock(std::unique_ptr<LockPrimitive> platformLock) : primitive(std::move(platformLock)) {}

  void lock() ACQUIRE() { primitive->lock(); }
  void unlock() RELEASE() { primitive->unlock(); }

 private:
  std::unique_ptr<LockPrimitive> primitive;
};

/// Holds a Lock for the length of a scope.
class SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(Lock& taken) ACQUIRE(taken) : held(taken) { held.lock(); }
  ~ScopedLock() RELEASE() { held.unlock(); }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  Lock& held;
};

}  // namespace korvel
