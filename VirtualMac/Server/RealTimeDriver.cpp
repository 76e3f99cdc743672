#include "VirtualMac/Server/RealTimeDriver.h"

#include <algorithm>

namespace virtualmac {

namespace {

/// The shortest time between two looks at the machine's own events, however fast time runs.
constexpr std::chrono::microseconds shortestPause{200};
constexpr std::chrono::hours longestPause{1};

}  // namespace

RealTimeDriver::RealTimeDriver(asio::io_context& context, Machine& kept, double startSpeed)
    : machine(kept),
      alarm(context),
      currentSpeed(startSpeed),
      steadyAtBase(steadyNow()),
      totalAtBase(kept.totalNanoseconds()) {}

void RealTimeDriver::catchUp() {
  const double elapsed = static_cast<double>(steadyNow() - steadyAtBase);
  const Nanoseconds target = totalAtBase + static_cast<Nanoseconds>(elapsed * currentSpeed);
  if (target > machine.totalNanoseconds())
    machine.advanceNanoseconds(target - machine.totalNanoseconds());
}

void RealTimeDriver::settle() {
  machine.advanceNanoseconds(0);
  if (isFrozen() != wasFrozen) {
    wasFrozen = isFrozen();
    if (clockHandler) clockHandler(time());
  }
  if (settledHandler) settledHandler();
  arm();
}

void RealTimeDriver::setSpeed(double newSpeed) {
  catchUp();
  steadyAtBase = steadyNow();
  totalAtBase = machine.totalNanoseconds();
  currentSpeed = newSpeed;
  if (clockHandler) clockHandler(time());
  alarmAt.reset();
  settle();
}

bool RealTimeDriver::isFrozen() const { return machine.isOff() || machine.power.isAsleep(); }

MachineTime RealTimeDriver::time() const {
  // The machine stands at the moment to which it has caught up, a little before now.
  const double sinceBase = static_cast<double>(machine.totalNanoseconds() - totalAtBase);
  return MachineTime{
      .steadyNanoseconds = steadyAtBase + static_cast<std::int64_t>(sinceBase / currentSpeed),
      .uptime = machine.uptimeNanoseconds(),
      .speed = currentSpeed,
      .frozen = isFrozen()};
}

std::chrono::nanoseconds RealTimeDriver::real(Nanoseconds virtualDuration) const {
  return realDuration(MachineTime{.speed = currentSpeed}, virtualDuration);
}

void RealTimeDriver::arm() {
  const std::optional<Nanoseconds> next = machine.nextEventNanoseconds();
  const auto due = next ? std::optional(machine.totalNanoseconds() + *next) : std::nullopt;
  if (due == alarmAt) return;
  alarmAt = due;
  if (!next) {
    alarm.cancel();
    return;
  }
  alarm.expires_after(
      std::clamp<std::chrono::nanoseconds>(real(*next), shortestPause, longestPause));
  alarm.async_wait([this](const std::error_code& cancelled) {
    if (cancelled) return;
    alarmAt.reset();
    catchUp();
    settle();
  });
}

}  // namespace virtualmac
