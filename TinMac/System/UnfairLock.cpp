#include <unistd.h>

#include <atomic>
#include <cstdint>

#include "TinMac/System/ExportTables.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

/// The lock's word names its owner, as on a Mac; 0 is unlocked.
std::uint32_t ownName() {
  static const thread_local auto name = static_cast<std::uint32_t>(::gettid());
  return name;
}

void lock(std::uint32_t* word) {
  const std::atomic_ref<std::uint32_t> owner(*word);
  std::uint32_t seen = 0;
  while (!owner.compare_exchange_weak(seen, ownName(), std::memory_order_acquire)) {
    if (seen == ownName()) trap("os_unfair_lock_lock", "the thread owns the lock already");
    if (seen != 0) owner.wait(seen, std::memory_order_relaxed);
    seen = 0;
  }
}

void unlock(std::uint32_t* word) {
  const std::atomic_ref<std::uint32_t> owner(*word);
  std::uint32_t seen = ownName();
  if (!owner.compare_exchange_strong(seen, 0, std::memory_order_release)) {
    trap("os_unfair_lock_unlock",
         seen == 0 ? "the lock is not locked" : "another thread owns the lock");
  }
  owner.notify_one();
}

}  // namespace

std::span<const Export> unfairLockExports() {
  static const Export table[] = {
      {"_os_unfair_lock_lock", code(lock)},
      {"_os_unfair_lock_unlock", code(unlock)},
  };
  return table;
}

}  // namespace tinmac
