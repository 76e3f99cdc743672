#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Platform/Dispatch.h"
#include "VirtualMac/Schedule/Observer.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

/// A serial queue: a lane that anybody may post to.
class VirtualQueue final : public korvel::WorkQueue {
 public:
  VirtualQueue(Scheduler& baton, std::shared_ptr<Lane> thread, const ScheduleObservers& watchers);

  void async(korvel::Task work) override;
  void sync(korvel::Task work) override;
  [[nodiscard]] bool isCurrent() const override;
  [[nodiscard]] const std::shared_ptr<Lane>& lane() const { return own; }

 private:
  /// Tells observers of the posted work, and wraps it so that they hear it begin and end.
  korvel::Task observed(korvel::Task work);

  Scheduler& scheduler;
  std::shared_ptr<Lane> own;
  const ScheduleObservers& observers;
  std::uint64_t posted = 0;
};

/// Shared by a timer and its firings, since a firing may destroy the timer.
class TimerCore : public std::enable_shared_from_this<TimerCore> {
 public:
  TimerCore(Scheduler& baton, std::shared_ptr<Lane> thread, const ScheduleObservers& watchers,
            std::uint64_t id);

  void setHandler(std::function<void()> body) { handler = std::move(body); }
  void schedule(double delaySeconds, std::optional<double> intervalSeconds);
  void resume();
  void cancel();

 private:
  void ring();
  void fire();

  Scheduler& scheduler;
  std::shared_ptr<Lane> lane;
  const ScheduleObservers& observers;
  TimerFacts facts;
  std::function<void()> handler;
  Alarm alarm;
  Nanoseconds next = 0;
  Nanoseconds interval = 0;  ///< 0: fires once.
  bool scheduled = false;
  bool resumed = false;
  bool cancelled = false;
  bool pending = false;  ///< A firing waits in the lane.
};

class VirtualTimer final : public korvel::TimerSource {
 public:
  explicit VirtualTimer(std::shared_ptr<TimerCore> shared) : core(std::move(shared)) {}
  ~VirtualTimer() override { core->cancel(); }
  void setEventHandler(std::function<void()> handler) override {
    core->setHandler(std::move(handler));
  }
  void schedule(double delaySeconds, std::optional<double> intervalSeconds,
                std::uint64_t /*leewayNanoseconds*/) override {
    core->schedule(delaySeconds, intervalSeconds);
  }
  void resume() override { core->resume(); }
  void cancel() override { core->cancel(); }

 private:
  std::shared_ptr<TimerCore> core;
};

class VirtualGroup final : public korvel::DispatchGroup {
 public:
  VirtualGroup(Scheduler& baton, ThreadGroup& owner, const ScheduleObservers& watchers);
  void enter() override { ++entered; }
  void leave() override;
  bool wait(double timeoutSeconds) override;

 private:
  Scheduler& scheduler;
  ThreadGroup& process;
  const ScheduleObservers& observers;
  std::uint64_t entered = 0;
  std::vector<Lane*> waiting;
};

}  // namespace virtualmac
