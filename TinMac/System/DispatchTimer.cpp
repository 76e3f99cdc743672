#include <limits>
#include <optional>

#include "TinMac/System/DispatchSource.h"
#include "TinMac/System/Host.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

constexpr auto latest = std::numeric_limits<std::int64_t>::max();

}  // namespace

struct DispatchTimer::Link {
  std::mutex mutex;
  /// Null: stopped.
  DispatchTimer* timer = nullptr;
  std::int64_t next = 0;
  /// Nothing: the next event is the last one.
  std::optional<std::int64_t> interval;
  std::optional<Host::AlarmID> alarm;
};

DispatchTimer::DispatchTimer(DispatchQueue& target)
    : DispatchSource(target), link(std::make_shared<Link>()) {
  link->timer = this;
}

void DispatchTimer::set(DispatchTime first, std::uint64_t interval) {
  requireInactive("dispatch_source_set_timer");
  if (interval == 0) trap("dispatch_source_set_timer", "an interval of 0");
  firstTime = first;
  period = interval;
}

void DispatchTimer::start() {
  if (firstTime == timeForever) return;
  const std::lock_guard lock(link->mutex);
  if (link->timer == nullptr) return;
  link->next = uptimeOf(firstTime);
  if (period <= static_cast<std::uint64_t>(latest)) {
    link->interval = static_cast<std::int64_t>(period);
  }
  arm(link);
}

void DispatchTimer::arm(const std::shared_ptr<Link>& link) {
  link->alarm = host().addAlarm(link->next, [link] { rise(link); });
}

void DispatchTimer::rise(const std::shared_ptr<Link>& link) {
  const std::lock_guard lock(link->mutex);
  if (link->timer == nullptr) return;
  link->alarm.reset();
  link->timer->fire();
  if (!link->interval) return;
  // Events that the machine was too late for are part of this one.
  const std::int64_t late = host().uptime() - link->next;
  const std::int64_t missed = late > 0 ? late / *link->interval : 0;
  const std::int64_t before = link->next + missed * *link->interval;
  if (*link->interval > latest - before) return;
  link->next = before + *link->interval;
  arm(link);
}

void DispatchTimer::stop() {
  std::optional<Host::AlarmID> alarm;
  {
    const std::lock_guard lock(link->mutex);
    link->timer = nullptr;
    alarm.swap(link->alarm);
  }
  if (alarm) host().removeAlarm(*alarm);
}

}  // namespace tinmac
