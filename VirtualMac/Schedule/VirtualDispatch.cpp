#include "VirtualMac/Schedule/VirtualDispatch.h"

#include <csignal>
#include <set>
#include <string>
#include <utility>

#include "Base/Trap.h"
#include "VirtualMac/Schedule/VirtualLock.h"
#include "VirtualMac/Schedule/VirtualQueue.h"

namespace virtualmac {

/// The process's signals, shared with the sources, so that either may be destroyed first.
struct VirtualDispatch::Signals {
  struct Source {
    int number = 0;
    std::function<void()> handler;
    bool resumed = false;
    bool gone = false;
    bool pending = false;
  };
  std::vector<std::shared_ptr<Source>> sources;
  std::set<int> ignored;
};

class VirtualDispatch::Signal final : public korvel::SignalSource {
 public:
  Signal(std::shared_ptr<Signals> of, int number)
      : all(std::move(of)), own(std::make_shared<Signals::Source>()) {
    own->number = number;
    all->sources.push_back(own);
  }
  ~Signal() override {
    own->gone = true;
    std::erase(all->sources, own);
  }
  void setEventHandler(std::function<void()> handler) override {
    own->handler = std::move(handler);
  }
  void resume() override { own->resumed = true; }

 private:
  std::shared_ptr<Signals> all;
  std::shared_ptr<Signals::Source> own;
};

VirtualDispatch::VirtualDispatch(Scheduler& baton, ThreadGroup& owner, std::shared_ptr<Lane> main,
                                 const ScheduleObservers& watchers)
    : scheduler(baton),
      process(owner),
      mainLane(std::move(main)),
      observers(watchers),
      signals(std::make_shared<Signals>()) {}

VirtualDispatch::~VirtualDispatch() = default;

std::shared_ptr<korvel::WorkQueue> VirtualDispatch::makeSerialQueue(std::string_view label) {
  return std::make_shared<VirtualQueue>(
      scheduler, std::make_shared<Lane>(scheduler, std::string(label), &process), observers);
}

std::unique_ptr<korvel::TimerSource> VirtualDispatch::makeTimer(
    const std::shared_ptr<korvel::WorkQueue>& queue) {
  const auto* own = dynamic_cast<const VirtualQueue*>(queue.get());
  if (own == nullptr) korvel::trap("a timer on a queue of another platform");
  return std::make_unique<VirtualTimer>(
      std::make_shared<TimerCore>(scheduler, own->lane(), observers, ++timersMade));
}

std::unique_ptr<korvel::SignalSource> VirtualDispatch::makeSignalSource(int signalNumber) {
  return std::make_unique<Signal>(signals, signalNumber);
}

std::shared_ptr<korvel::DispatchGroup> VirtualDispatch::makeGroup() {
  return std::make_shared<VirtualGroup>(scheduler, process, observers);
}

std::unique_ptr<korvel::LockPrimitive> VirtualDispatch::makeLock(std::string_view label) {
  return std::make_unique<VirtualLock>(scheduler, process, observers, std::string(label));
}

void VirtualDispatch::ignoreDefaultAction(int signalNumber) {
  signals->ignored.insert(signalNumber);
}

void VirtualDispatch::runMainLoop() {
  scheduler.requireAlive(&process);
  if (&scheduler.current() != mainLane.get()) {
    korvel::trap("the main loop runs on the main thread");
  }
  scheduler.serveInbox();
}

bool VirtualDispatch::deliverSignal(int signalNumber) {
  if (!ignoresDefaultAction(signalNumber)) return false;
  for (const std::shared_ptr<Signals::Source>& source : signals->sources) {
    if (source->number != signalNumber || !source->resumed || source->pending) continue;
    source->pending = true;
    postToMain([source] {
      source->pending = false;
      if (!source->gone && source->handler) source->handler();
    });
  }
  return true;
}

bool VirtualDispatch::ignoresDefaultAction(int signalNumber) const {
  return signalNumber != SIGKILL && signals->ignored.contains(signalNumber);
}

void VirtualDispatch::postToMain(korvel::Task work) { scheduler.post(*mainLane, std::move(work)); }

}  // namespace virtualmac
