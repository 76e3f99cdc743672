#include "VirtualMac/InProcess/BatonGate.h"

#include <utility>

#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

BatonGate::BatonGate(Scheduler& baton, ThreadGroup& owner, FaultTable& faultTable,
                     const Machine& mac, const ScheduleObservers& watchers,
                     std::function<void()> killProcess)
    : scheduler(baton),
      process(owner),
      faults(faultTable),
      machine(mac),
      observers(watchers),
      kill(std::move(killProcess)) {}

std::optional<InjectedFault> BatonGate::enter(SeamCall call) {
  const bool release = describe(call).kind == FailureKind::Release;
  const auto deadAnswer = [&]() -> std::optional<InjectedFault> {
    if (!release) scheduler.requireAlive(&process);
    return InjectedFault{};
  };
  if (!process.alive()) return deadAnswer();
  if (!observers.empty()) {
    observers.tell(&ScheduleObserver::callMade, scheduler.current(), call);
  }
  FaultTable::Verdict verdict = faults.next(call);
  if (verdict.kill) {
    kill();
    return deadAnswer();
  }
  const double latency = verdict.latencySeconds + machine.latencySeconds(call);
  if (latency > 0) {
    scheduler.sleepUntil(scheduler.time().uptime() + fromSeconds(latency), &process);
  } else if (!release) {
    scheduler.mayInterrupt();
  }
  if (!process.alive()) return deadAnswer();
  if (!observers.empty()) {
    observers.tell(&ScheduleObserver::callTakesEffect, scheduler.current(), call,
                   verdict.fault.has_value());
  }
  return std::move(verdict.fault);
}

}  // namespace virtualmac
