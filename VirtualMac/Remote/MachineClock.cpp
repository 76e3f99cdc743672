#include "VirtualMac/Remote/MachineClock.h"

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <map>
#include <mutex>
#include <utility>

#include "VirtualMac/Remote/EventThread.h"

namespace virtualmac {

struct MachineClock::State : std::enable_shared_from_this<State> {
  struct Alarm {
    AlarmID id;
    std::function<void()> handler;
  };

  State(MachineTime now, asio::io_context& events) : current(now), timer(events) {}

  void lookSoon() {
    asio::post(timer.get_executor(), [self = weak_from_this()] {
      if (const auto alive = self.lock()) alive->look();
    });
  }
  /// Runs the alarms that are due and waits for the next one. On the thread of events.
  void look() {
    std::unique_lock lock(mutex);
    while (!alarms.empty() && !current.frozen) {
      const auto first = alarms.begin();
      const Nanoseconds ahead = first->first - uptimeAt(current, steadyNow());
      if (ahead > 0) return wait(realDuration(current, ahead));
      const std::function<void()> handler = std::move(first->second.handler);
      alarms.erase(first);
      looking = true;
      lock.unlock();
      handler();
      lock.lock();
      looking = false;
    }
    timer.cancel();
  }
  void wait(std::chrono::nanoseconds duration) {
    timer.expires_after(duration);
    timer.async_wait([self = weak_from_this()](const std::error_code& cancelled) {
      const auto alive = self.lock();
      if (!cancelled && alive) alive->look();
    });
  }

  std::mutex mutex;
  MachineTime current;
  std::multimap<Nanoseconds, Alarm> alarms;
  AlarmID lastAlarm = 0;
  bool looking = false;      ///< A handler runs; after it, the alarms are looked at again.
  asio::steady_timer timer;  ///< Of the next alarm. On the thread of events.
};

MachineClock::MachineClock(MachineTime now, EventThread& events)
    : state(std::make_shared<State>(now, events.context())) {}

MachineClock::~MachineClock() = default;

void MachineClock::setTime(const MachineTime& now) {
  const std::lock_guard lock(state->mutex);
  if (now.steadyNanoseconds < state->current.steadyNanoseconds) return;
  state->current = now;
  if (!state->alarms.empty()) state->lookSoon();
}

MachineTime MachineClock::time() const {
  const std::lock_guard lock(state->mutex);
  return state->current;
}

Nanoseconds MachineClock::uptime() const { return uptimeAt(time(), steadyNow()); }

MachineClock::AlarmID MachineClock::addAlarm(Nanoseconds uptime, std::function<void()> handler) {
  const std::lock_guard lock(state->mutex);
  const AlarmID id = ++state->lastAlarm;
  const auto added = state->alarms.emplace(uptime, State::Alarm{id, std::move(handler)});
  if (added == state->alarms.begin() && !state->looking) state->lookSoon();
  return id;
}

void MachineClock::removeAlarm(AlarmID alarm) {
  const std::lock_guard lock(state->mutex);
  std::erase_if(state->alarms, [alarm](const auto& entry) { return entry.second.id == alarm; });
}

}  // namespace virtualmac
