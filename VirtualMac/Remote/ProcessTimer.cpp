#include "VirtualMac/Remote/ProcessTimer.h"

#include <mutex>
#include <optional>
#include <utility>

namespace virtualmac {

struct ProcessTimer::State {
  State(std::shared_ptr<korvel::WorkQueue> targetQueue, MachineClock& machineClock)
      : queue(std::move(targetQueue)), clock(machineClock) {}

  std::shared_ptr<korvel::WorkQueue> queue;
  MachineClock& clock;
  std::mutex mutex;
  std::shared_ptr<const std::function<void()>> handler;
  Nanoseconds due = 0;
  std::optional<Nanoseconds> interval;
  std::optional<MachineClock::AlarmID> pendingAlarm;
  bool scheduled = false;
  bool resumed = false;
  bool cancelled = false;
  bool posted = false;
};

ProcessTimer::ProcessTimer(std::shared_ptr<korvel::WorkQueue> queue, MachineClock& clock)
    : shared(std::make_shared<State>(std::move(queue), clock)) {}

ProcessTimer::~ProcessTimer() { cancel(); }

void ProcessTimer::setEventHandler(std::function<void()> handler) {
  const std::lock_guard lock(shared->mutex);
  shared->handler = std::make_shared<const std::function<void()>>(std::move(handler));
}

void ProcessTimer::schedule(double delaySeconds, std::optional<double> intervalSeconds,
                            std::uint64_t /*leewayNanoseconds*/) {
  const std::lock_guard lock(shared->mutex);
  shared->due = shared->clock.uptime() + fromSeconds(delaySeconds);
  shared->interval.reset();
  if (intervalSeconds) shared->interval = fromSeconds(*intervalSeconds);
  shared->scheduled = true;
  arm(shared);
}

void ProcessTimer::resume() {
  const std::lock_guard lock(shared->mutex);
  shared->resumed = true;
  arm(shared);
}

void ProcessTimer::cancel() {
  const std::lock_guard lock(shared->mutex);
  shared->cancelled = true;
  if (shared->pendingAlarm) shared->clock.removeAlarm(*shared->pendingAlarm);
  shared->pendingAlarm.reset();
}

// Called with the state's mutex held.
void ProcessTimer::arm(const std::shared_ptr<State>& state) {
  if (!state->scheduled || !state->resumed || state->cancelled) return;
  if (state->pendingAlarm) state->clock.removeAlarm(*state->pendingAlarm);
  state->pendingAlarm = state->clock.addAlarm(state->due, [state] { alarm(state); });
}

void ProcessTimer::alarm(const std::shared_ptr<State>& state) {
  std::unique_lock lock(state->mutex);
  if (state->cancelled) return;
  state->pendingAlarm.reset();
  if (state->interval) {
    const Nanoseconds late = state->clock.uptime() - state->due;
    const Nanoseconds missed = late > 0 && *state->interval > 0 ? late / *state->interval : 0;
    state->due += (missed + 1) * *state->interval;
    arm(state);
  }
  if (state->posted) return;
  state->posted = true;
  lock.unlock();  // The queue's thread takes it as soon as it wakes.
  state->queue->async([state] { fire(state); });
}

void ProcessTimer::fire(const std::shared_ptr<State>& state) {
  std::shared_ptr<const std::function<void()>> handler;
  {
    const std::lock_guard lock(state->mutex);
    state->posted = false;
    if (state->cancelled) return;
    handler = state->handler;
  }
  if (handler) (*handler)();
}

}  // namespace virtualmac
