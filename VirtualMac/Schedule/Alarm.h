#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>

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
  [[nodiscard]] bool isArmed() const { return armed; }
  [[nodiscard]] Nanoseconds due() const { return at; }

 private:
  friend class AlarmClock;

  AlarmClock& clock;
  std::function<void()> ring;
  Nanoseconds at = 0;
  std::uint64_t order = 0;
  bool armed = false;
};

/// The armed alarms, earliest first, and among equals the one armed first.
class AlarmClock {
 public:
  [[nodiscard]] bool empty() const { return alarms.empty(); }
  [[nodiscard]] std::size_t size() const { return alarms.size(); }
  /// The earliest alarm's time; only when not empty.
  [[nodiscard]] Nanoseconds earliest() const { return (*alarms.begin())->at; }
  /// Rings every alarm that is due at `uptime`; an alarm may arm and disarm any while it rings.
  void ringDue(Nanoseconds uptime);

 private:
  friend class Alarm;
  struct Before {
    bool operator()(const Alarm* left, const Alarm* right) const;
  };

  std::set<Alarm*, Before> alarms;
  std::uint64_t lastOrder = 0;
};

}  // namespace virtualmac
