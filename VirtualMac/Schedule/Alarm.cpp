#include "VirtualMac/Schedule/Alarm.h"

#include <utility>

namespace virtualmac {

Alarm::Alarm(AlarmClock& alarmClock, std::function<void()> action)
    : clock(alarmClock), ring(std::move(action)) {}

void Alarm::arm(Nanoseconds uptime) {
  disarm();
  at = uptime;
  clock.insert(*this);
}

void Alarm::disarm() {
  if (isArmed()) clock.remove(*this);
}

bool AlarmClock::before(const Alarm& left, const Alarm& right) {
  return left.at != right.at ? left.at < right.at : left.order < right.order;
}

void AlarmClock::ringDue(Nanoseconds uptime) {
  // An alarm armed while ringing, even for now, waits for the next round: it cannot starve others.
  const std::uint64_t lastOfRound = lastOrder;
  while (!heap.empty() && heap.front()->at <= uptime && heap.front()->order <= lastOfRound) {
    Alarm& alarm = *heap.front();
    remove(alarm);
    alarm.ring();
  }
}

void AlarmClock::insert(Alarm& alarm) {
  alarm.order = ++lastOrder;
  heap.push_back(&alarm);
  alarm.position = heap.size() - 1;
  siftUp(alarm.position);
}

void AlarmClock::remove(Alarm& alarm) {
  const std::size_t hole = std::exchange(alarm.position, Alarm::notArmed);
  Alarm& last = *heap.back();
  heap.pop_back();
  if (&last == &alarm) return;
  put(last, hole);
  siftUp(hole);
  siftDown(last.position);
}

void AlarmClock::put(Alarm& alarm, std::size_t position) {
  heap[position] = &alarm;
  alarm.position = position;
}

void AlarmClock::siftUp(std::size_t position) {
  while (position > 0) {
    const std::size_t parent = (position - 1) / 2;
    if (!before(*heap[position], *heap[parent])) return;
    Alarm& moved = *heap[parent];
    put(*heap[position], parent);
    put(moved, position);
    position = parent;
  }
}

void AlarmClock::siftDown(std::size_t position) {
  for (;;) {
    std::size_t least = position;
    for (const std::size_t child : {2 * position + 1, 2 * position + 2}) {
      if (child < heap.size() && before(*heap[child], *heap[least])) least = child;
    }
    if (least == position) return;
    Alarm& moved = *heap[least];
    put(*heap[position], least);
    put(moved, position);
    position = least;
  }
}

}  // namespace virtualmac
