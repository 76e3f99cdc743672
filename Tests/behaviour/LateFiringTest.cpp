// A source's handler may be on its way when the source is cancelled. A platform keeps such a firing
// back; the helper does nothing on it, should one come through.

#include <functional>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "HelperImpl.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

/// Timers and signal sources whose handlers a test can also call itself, whatever became of them.
class LateDispatch final : public Dispatch {
 public:
  using Handler = std::function<void()>;
  explicit LateDispatch(Dispatch& platform) : base(platform) {}

  /// Has the handler of the timer that was made last run once more, on its queue.
  void fireLastTimer() { timers->back().first->async(timers->back().second); }
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

/// Every call here goes to the core directly.
class LateFiringTest : public OnBench {
 protected:
  LateFiringTest() { excuse(replyRule); }
  Platform& real = world.startBareHelper();
  LateDispatch late{real.dispatch};
  Platform platform = with(real, late);
};

}  // namespace

TEST_F(LateFiringTest, AGracePeriodThatRunsOutBesideAnArrivalReleasesNothing) {
  charge(90);
  const auto core = HelperImpl::create(platform);
  core->clientDidConnect();
  core->setChargeLimit(60, ignored());
  run(6);
  core->clientDidDisconnect();
  world.runUntilIdle();
  core->clientDidConnect();
  world.runUntilIdle();
  mark();
  late.fireLastTimer();
  world.runUntilIdle();
  EXPECT_THAT(since("smc disk log"), IsEmpty());
  EXPECT_EQ(onDisk().chargeLimit, 60);
}

TEST_F(LateFiringTest, TimersAndSignalsOfADeadCoreDoNothing) {
  charge(90);
  auto core = HelperImpl::create(platform);
  core->clientDidConnect();
  core->setChargeLimit(60, ignored());
  world.runUntilIdle();
  core.reset();
  ASSERT_GT(late.timerCount(), 0U);
  ASSERT_GT(late.signalCount(), 0U);
  mark();
  late.fireAllTimers();
  late.raiseAllSignals();
  run(10);
  EXPECT_THAT(since("smc disk log"), IsEmpty());
}

}  // namespace korvel::test
