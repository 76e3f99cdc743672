#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "VirtualMac/Schedule/VirtualTime.h"

namespace virtualmac {

class AlarmClock;

/// An action due at a point of uptime. Destroying the alarm takes it out of its clock.
class Alarm {
 public:
  Alarm(AlarmClock& alarmClock, std::function<void()> action);
  ~Alarm() { disarm(); }
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;

  void arm(Nanoseconds uptime);  ///< Moves an alarm that is armed already.
  void disarm();
  [[nodiscard]] bool isArmed() const { return position != notArmed; }
  [[nodiscard]] Nanoseconds due() const { return at; }

 private:
  friend class AlarmClock;
  static constexpr std::size_t notArmed = static_cast<std::size_t>(-1);

  AlarmClock& clock;
  std::function<void()> ring;
  Nanoseconds at = 0;
  std::uint64_t order = 0;
  std::size_t position = notArmed;
};

/// The armed alarms, earliest first, and among equals the one armed first. A binary heap in which
/// every alarm knows its place, so that a cancelled one leaves nothing behind.
class AlarmClock {
 public:
  [[nodiscard]] bool empty() const { return heap.empty(); }
  [[nodiscard]] std::size_t size() const { return heap.size(); }
  /// The earliest alarm's time; only when not empty.
  [[nodiscard]] Nanoseconds earliest() const { return heap.front()->at; }
  /// Rings every alarm that is due at `uptime`; an alarm may arm and disarm any while it rings.
  void ringDue(Nanoseconds uptime);

 private:
  friend class Alarm;
  static bool before(const Alarm& left, const Alarm& right);
  void insert(Alarm& alarm);
  void remove(Alarm& alarm);
  void put(Alarm& alarm, std::size_t position);
  void siftUp(std::size_t position);
  void siftDown(std::size_t position);

  std::vector<Alarm*> heap;
  std::uint64_t lastOrder = 0;
};

}  // namespace virtualmac
