#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <optional>

#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Remote/MachineTime.h"

namespace virtualmac {

/// Lets a machine's virtual time follow real time, faster by `speed`. Call `catchUp` before
/// touching the machine and `settle` afterwards; in between, a timer wakes the machine for its own
/// events.
class RealTimeDriver {
 public:
  using ClockHandler = std::function<void(const MachineTime&)>;

  RealTimeDriver(asio::io_context& context, Machine& kept, double startSpeed);

  /// Called when the uptime begins to run differently: asleep, awake, another speed.
  void setClockHandler(ClockHandler handler) { clockHandler = std::move(handler); }
  /// Called after every settling, when everything that was due has happened.
  void setSettledHandler(std::function<void()> handler) { settledHandler = std::move(handler); }

  /// Brings the machine to the present moment.
  void catchUp();
  /// Lets the consequences of a change happen, and sets the timer for the next event.
  void settle();

  /// Virtual seconds in a real one from now on; time that has passed keeps its speed.
  void setSpeed(double newSpeed);
  [[nodiscard]] double speed() const { return currentSpeed; }
  /// How the uptime runs from now on.
  [[nodiscard]] MachineTime time() const;
  /// The real duration of a virtual one, in the future.
  [[nodiscard]] std::chrono::nanoseconds real(Nanoseconds virtualDuration) const;

 private:
  void arm();
  [[nodiscard]] bool isFrozen() const;

  Machine& machine;
  asio::steady_timer alarm;
  /// When the alarm rings, as the machine counts; none: not at all. So a machine whose next event
  /// stays the same does not set it again.
  std::optional<Nanoseconds> alarmAt;
  ClockHandler clockHandler;
  std::function<void()> settledHandler;
  double currentSpeed;
  std::int64_t steadyAtBase;
  Nanoseconds totalAtBase;
  bool wasFrozen = false;
};

}  // namespace virtualmac
