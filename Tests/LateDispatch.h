#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Dispatch.h"

namespace korvel::test {

/// Timers and signal sources whose handlers a test can also call itself, whatever became of them.
class LateDispatch final : public Dispatch {
 public:
  using Handler = std::function<void()>;
  explicit LateDispatch(Dispatch& platform) : base(platform) {}

  /// Has the handler of the timer that was made last run once more, on its queue.
  void fireLastTimer() { timers->back().first->async(timers->back().second); }
  /// The queue and the handler of the timer that was made last.
  [[nodiscard]] const std::pair<std::shared_ptr<WorkQueue>, Handler>& lastTimer() const {
    return timers->back();
  }
  void fireAllTimers() {
    for (const auto& [queue, handler] : *timers) queue->async(handler);
  }
  void raiseAllSignals() {
    for (const Handler& handler : *signals) handler();
  }
  [[nodiscard]] std::size_t timerCount() const { return timers->size(); }
  [[nodiscard]] std::size_t signalCount() const { return signals->size(); }

  std::shared_ptr<WorkQueue> makeSerialQueue(std::string_view label) override {
    return base.makeSerialQueue(label);
  }
  std::unique_ptr<TimerSource> makeTimer(const std::shared_ptr<WorkQueue>& queue) override {
    return std::make_unique<Timer>(base.makeTimer(queue), [queue, all = timers](Handler handler) {
      all->emplace_back(queue, std::move(handler));
    });
  }
  std::unique_ptr<SignalSource> makeSignalSource(int signalNumber) override {
    return std::make_unique<Signal>(base.makeSignalSource(signalNumber), signals);
  }
  std::shared_ptr<DispatchGroup> makeGroup() override { return base.makeGroup(); }
  std::unique_ptr<LockPrimitive> makeLock(std::string_view label) override {
    return base.makeLock(label);
  }
  void ignoreDefaultAction(int signalNumber) override { base.ignoreDefaultAction(signalNumber); }
  void runMainLoop() override { base.runMainLoop(); }

 private:
  class Timer final : public TimerSource {
   public:
    Timer(std::unique_ptr<TimerSource> real, std::function<void(Handler)> noted)
        : timer(std::move(real)), note(std::move(noted)) {}
    void setEventHandler(Handler handler) override {
      note(handler);
      timer->setEventHandler(std::move(handler));
    }
    void schedule(double delay, std::optional<double> interval, std::uint64_t leeway) override {
      timer->schedule(delay, interval, leeway);
    }
    void resume() override { timer->resume(); }
    void cancel() override { timer->cancel(); }

   private:
    std::unique_ptr<TimerSource> timer;
    std::function<void(Handler)> note;
  };
  class Signal final : public SignalSource {
   public:
    Signal(std::unique_ptr<SignalSource> real, std::shared_ptr<std::vector<Handler>> all)
        : source(std::move(real)), handlers(std::move(all)) {}
    void setEventHandler(Handler handler) override {
      handlers->push_back(handler);
      source->setEventHandler(std::move(handler));
    }
    void resume() override { source->resume(); }

   private:
    std::unique_ptr<SignalSource> source;
    std::shared_ptr<std::vector<Handler>> handlers;
  };

  Dispatch& base;
  std::shared_ptr<std::vector<std::pair<std::shared_ptr<WorkQueue>, Handler>>> timers =
      std::make_shared<std::vector<std::pair<std::shared_ptr<WorkQueue>, Handler>>>();
  std::shared_ptr<std::vector<Handler>> signals = std::make_shared<std::vector<Handler>>();
};

}  // namespace korvel::test
