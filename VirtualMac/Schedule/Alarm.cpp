#include "VirtualMac/Schedule/Alarm.h"

#include <utility>

namespace virtualmac {

Alarm::Alarm(AlarmClock& alarmClock, std::function<void()> action)
    : clock(alarmClock), ring(std::move(action)) {}

void Alarm::arm(Nanoseconds uptime) {
  disarm();
  at = uptime;
  order = ++clock.lastOrder;
  clock.alarms.insert(this);
  armed = true;
}

void Alarm::disarm() {
  if (armed) clock.alarms.erase(this);
  armed = false;
}

bool AlarmClock::Before::operator()(const Alarm* left, const Alarm* right) const {
  return left->at != right->at ? left->at < right->at : left->order < right->order;
}

void AlarmClock::ringDue(Nanoseconds uptime) {
  // An alarm armed while ringing, even for now, waits for the next round: it cannot starve others.
  const std::uint64_t lastOfRound = lastOrder;
  while (!alarms.empty()) {
    Alarm& alarm = **alarms.begin();
    if (alarm.at > uptime || alarm.order > lastOfRound) return;
    alarm.disarm();
    alarm.ring();
  }
}

}  // namespace virtualmac
