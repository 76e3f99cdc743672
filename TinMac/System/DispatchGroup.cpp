#include "TinMac/System/DispatchGroup.h"

#include <chrono>
#include <memory>
#include <thread>

#include "TinMac/System/Host.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

/// A wait shares this with its alarm, which may run after the wait and after the group.
struct DispatchGroup::Deadline {
  std::mutex mutex;
  DispatchGroup* group = nullptr;
  bool reached = false;
};

void DispatchGroup::enter() {
  const std::lock_guard lock(mutex);
  ++entered;
}

void DispatchGroup::leave() {
  const std::lock_guard lock(mutex);
  if (entered == 0) trap("dispatch_group_leave without dispatch_group_enter", className());
  if (--entered == 0) changed.notify_all();
}

bool DispatchGroup::wait(DispatchTime until) {
  const Held<DispatchGroup> held(*this);
  std::unique_lock lock(mutex);
  if (until == timeForever) {
    changed.wait(lock, [&] { return entered == 0; });
    return true;
  }
  if (entered == 0) return true;
  lock.unlock();
  if (uptimeOf(until) <= host().uptime()) return false;
  return waitUntil(until);
}

bool DispatchGroup::waitUntil(DispatchTime until) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds shortest(250);
  const Clock::time_point earliest = Clock::now() + shortest;
  const auto deadline = std::make_shared<Deadline>();
  deadline->group = this;
  const Host::AlarmID alarm = host().addAlarm(uptimeOf(until), [deadline] {
    const std::lock_guard lock(deadline->mutex);
    if (deadline->group == nullptr) return;
    const std::lock_guard groupLock(deadline->group->mutex);
    deadline->reached = true;
    deadline->group->changed.notify_all();
  });
  bool done = false;
  {
    std::unique_lock lock(mutex);
    changed.wait_until(lock, earliest, [&] { return entered == 0; });
    changed.wait(lock, [&] { return entered == 0 || deadline->reached; });
    done = entered == 0;
  }
  {
    const std::lock_guard lock(deadline->mutex);
    deadline->group = nullptr;
  }
  host().removeAlarm(alarm);
  return done;
}

void DispatchGroup::abandoned() {
  const std::lock_guard lock(mutex);
  if (entered > 0) trap("dispatch_release of a group that is entered", className());
}

void DispatchGroup::dispose() {
  if (!hasFinalizer()) {
    delete this;
    return;
  }
  // A group has no queue of its own; its finalizer runs apart from every queue.
  std::thread([this] {
    finalize();
    delete this;
  }).detach();
}

}  // namespace tinmac
