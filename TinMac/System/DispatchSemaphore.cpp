// Counting semaphores and pauses. The frameworks make dispatch_semaphore_t of them, which a program
// with automatic counting owns like any other object.

#include <algorithm>
#include <condition_variable>
#include <limits>
#include <memory>
#include <mutex>

#include "TinMac/Frameworks/Below.h"
#include "TinMac/System/DispatchTime.h"
#include "TinMac/System/Host.h"

namespace tinmac {

namespace {

/// Shared with the alarms of waits, which may run after the semaphore is gone.
struct Semaphore {
  std::mutex mutex;
  std::condition_variable changed;
  std::int64_t free = 0;
  std::int64_t waiting = 0;
};
using Shared = std::shared_ptr<Semaphore>;

Shared& shared(void* semaphore) { return *static_cast<Shared*>(semaphore); }

/// An alarm of the machine's clock that wakes the semaphore's waiters; none for a wait for ever,
/// and for a moment that is here already.
class WakeUp {
 public:
  WakeUp(const Shared& semaphore, DispatchTime until) {
    if (until == timeForever) return;
    const std::int64_t uptime = uptimeOf(until);
    *reached = uptime <= host().uptime();
    isTimed = !*reached;
    if (!isTimed) return;
    alarm = host().addAlarm(uptime, [semaphore, due = reached] {
      const std::lock_guard lock(semaphore->mutex);
      *due = true;
      semaphore->changed.notify_all();
    });
  }
  ~WakeUp() {
    if (isTimed) host().removeAlarm(alarm);
  }
  WakeUp(const WakeUp&) = delete;
  WakeUp& operator=(const WakeUp&) = delete;

  /// With the semaphore's lock held.
  [[nodiscard]] bool isDue() const { return *reached; }

 private:
  bool isTimed = false;
  Host::AlarmID alarm = 0;
  std::shared_ptr<bool> reached = std::make_shared<bool>(false);
};

/// False: the moment came first.
bool acquire(const Shared& semaphore, DispatchTime until) {
  const WakeUp wakeUp(semaphore, until);
  std::unique_lock lock(semaphore->mutex);
  ++semaphore->waiting;
  semaphore->changed.wait(lock, [&] { return semaphore->free > 0 || wakeUp.isDue(); });
  --semaphore->waiting;
  if (semaphore->free == 0) return false;
  --semaphore->free;
  return true;
}

}  // namespace

extern "C" {

void* tinSemaphoreMake(std::int64_t value) {
  auto made = std::make_unique<Shared>(std::make_shared<Semaphore>());
  (*made)->free = value;
  return made.release();
}

void tinSemaphoreFree(void* semaphore) {
  const std::unique_ptr<Shared> freed(static_cast<Shared*>(semaphore));
}

std::uint32_t tinSemaphoreSignal(void* semaphore) {
  const Shared held = shared(semaphore);
  const std::lock_guard lock(held->mutex);
  ++held->free;
  held->changed.notify_one();
  return held->waiting > 0 ? 1 : 0;
}

std::uint32_t tinSemaphoreWait(void* semaphore, std::uint64_t until) {
  return acquire(Shared(shared(semaphore)), until) ? 1 : 0;
}

void tinPause(double seconds) {
  constexpr double nanoseconds = 1e9;
  constexpr double most = static_cast<double>(std::numeric_limits<std::int64_t>::max()) / 2;
  const double length = std::clamp(seconds * nanoseconds, 0.0, most);
  acquire(std::make_shared<Semaphore>(), timeAfter(timeNow, static_cast<std::int64_t>(length)));
}

}  // extern "C"

}  // namespace tinmac
