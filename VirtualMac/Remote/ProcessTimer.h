#pragma once

#include <memory>

#include "Platform/Dispatch.h"
#include "VirtualMac/Remote/MachineClock.h"

namespace virtualmac {

/// A timer on a queue, by alarms of the machine's clock.
///
/// The alarm posts the firing to the queue, unless one still waits there. A firing that was posted
/// before a cancel does nothing. The queue's work, the clock's thread and the owner share the
/// state, under its mutex; the handler runs without the mutex.
class ProcessTimer final : public korvel::TimerSource {
 public:
  ProcessTimer(std::shared_ptr<korvel::WorkQueue> queue, MachineClock& clock);
  ~ProcessTimer() override;

  void setEventHandler(std::function<void()> handler) override;
  void schedule(double delaySeconds, std::optional<double> intervalSeconds,
                std::uint64_t leewayNanoseconds) override;
  void resume() override;
  void cancel() override;

 private:
  struct State;
  static void arm(const std::shared_ptr<State>& state);
  static void alarm(const std::shared_ptr<State>& state);
  static void fire(const std::shared_ptr<State>& state);

  std::shared_ptr<State> shared;
};

}  // namespace virtualmac
