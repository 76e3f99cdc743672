#include "VirtualMac/Remote/MachineClock.h"

#include <utility>

namespace virtualmac {

MachineClock::MachineClock(MachineTime now) : current(now), thread([this] { run(); }) {}

MachineClock::~MachineClock() {
  {
    const std::lock_guard lock(mutex);
    stopping = true;
  }
  changed.notify_all();
  thread.join();
}

void MachineClock::setTime(const MachineTime& now) {
  const std::lock_guard lock(mutex);
  if (now.steadyNanoseconds < current.steadyNanoseconds) return;
  current = now;
  changed.notify_all();
}

MachineTime MachineClock::time() const {
  const std::lock_guard lock(mutex);
  return current;
}

Nanoseconds MachineClock::uptime() const { return uptimeAt(time(), steadyNow()); }

MachineClock::AlarmID MachineClock::addAlarm(Nanoseconds uptime, std::function<void()> handler) {
  const std::lock_guard lock(mutex);
  const AlarmID id = ++lastAlarm;
  alarms.emplace(uptime, Alarm{id, std::move(handler)});
  changed.notify_all();
  return id;
}

void MachineClock::removeAlarm(AlarmID alarm) {
  const std::lock_guard lock(mutex);
  std::erase_if(alarms, [alarm](const auto& entry) { return entry.second.id == alarm; });
}

void MachineClock::run() {
  std::unique_lock lock(mutex);
  while (!stopping) {
    if (alarms.empty() || current.frozen) {
      changed.wait(lock);
      continue;
    }
    const auto first = alarms.begin();
    const Nanoseconds ahead = first->first - uptimeAt(current, steadyNow());
    if (ahead > 0) {
      changed.wait_for(lock, realDuration(current, ahead));
      continue;
    }
    const std::function<void()> handler = std::move(first->second.handler);
    alarms.erase(first);
    lock.unlock();
    handler();
    lock.lock();
  }
}

}  // namespace virtualmac
