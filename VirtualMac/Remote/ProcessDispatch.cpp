#include "VirtualMac/Remote/ProcessDispatch.h"

#include <algorithm>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>

#include "Base/Trap.h"
#include "VirtualMac/Remote/ProcessQueue.h"
#include "VirtualMac/Remote/ProcessTimer.h"

namespace virtualmac {

namespace {

using WorkGuard = asio::executor_work_guard<asio::io_context::executor_type>;

constexpr std::chrono::milliseconds shortestGroupWait{250};

class ProcessLock final : public korvel::LockPrimitive {
 public:
  void lock() override { mutex.lock(); }
  void unlock() override { mutex.unlock(); }

 private:
  std::mutex mutex;
};

class ProcessGroup final : public korvel::DispatchGroup {
 public:
  explicit ProcessGroup(const MachineClock& machineClock) : clock(machineClock) {}

  void enter() override {
    const std::lock_guard lock(mutex);
    ++entered;
  }

  void leave() override {
    const std::lock_guard lock(mutex);
    if (entered == 0) korvel::trap("a dispatch group was left more often than entered");
    if (--entered == 0) empty.notify_all();
  }

  bool wait(double timeoutSeconds) override {
    const std::chrono::nanoseconds scaled = realDuration(clock.time(), fromSeconds(timeoutSeconds));
    std::unique_lock lock(mutex);
    return empty.wait_for(lock, std::max<std::chrono::nanoseconds>(scaled, shortestGroupWait),
                          [this] { return entered == 0; });
  }

 private:
  const MachineClock& clock;
  std::mutex mutex;
  std::condition_variable empty;
  int entered = 0;
};

}  // namespace

struct ProcessDispatch::MainLoop : std::enable_shared_from_this<MainLoop> {
  struct Source {
    int number = 0;
    bool resumed = false;
    std::function<void()> handler;
  };

  void listen() {
    signals.async_wait([this](const std::error_code& error, int number) {
      if (error) return;
      listen();
      hear(number);
    });
  }

  void hear(int number) {
    // A handler may exit the process, and may make or drop sources.
    const std::vector<std::shared_ptr<Source>> heard = sources;
    for (const std::shared_ptr<Source>& source : heard)
      if (source->number == number && source->resumed && source->handler) source->handler();
  }

  asio::io_context context{1};
  WorkGuard guard{context.get_executor()};
  asio::signal_set signals{context};
  std::vector<std::shared_ptr<Source>> sources;
};

namespace {

/// Stands in the main loop's list of sources while it lives. Main thread only.
template <class Loop, class Entry>
class ProcessSignalSource final : public korvel::SignalSource {
 public:
  ProcessSignalSource(std::shared_ptr<Loop> mainLoop, int signalNumber)
      : loop(std::move(mainLoop)), entry(std::make_shared<Entry>()) {
    entry->number = signalNumber;
    loop->sources.push_back(entry);
  }
  ~ProcessSignalSource() override { std::erase(loop->sources, entry); }

  void setEventHandler(std::function<void()> handler) override {
    entry->handler = std::move(handler);
  }
  void resume() override { entry->resumed = true; }

 private:
  std::shared_ptr<Loop> loop;
  std::shared_ptr<Entry> entry;
};

}  // namespace

ProcessDispatch::ProcessDispatch(MachineClock& machineClock)
    : clock(machineClock), main(std::make_shared<MainLoop>()) {
  main->listen();
}

ProcessDispatch::~ProcessDispatch() = default;

std::shared_ptr<korvel::WorkQueue> ProcessDispatch::makeSerialQueue(std::string_view label) {
  return std::make_shared<ProcessQueue>(label);
}

std::unique_ptr<korvel::TimerSource> ProcessDispatch::makeTimer(
    const std::shared_ptr<korvel::WorkQueue>& queue) {
  return std::make_unique<ProcessTimer>(queue, clock);
}

std::unique_ptr<korvel::SignalSource> ProcessDispatch::makeSignalSource(int signalNumber) {
  return std::make_unique<ProcessSignalSource<MainLoop, MainLoop::Source>>(main, signalNumber);
}

std::shared_ptr<korvel::DispatchGroup> ProcessDispatch::makeGroup() {
  return std::make_shared<ProcessGroup>(clock);
}

std::unique_ptr<korvel::LockPrimitive> ProcessDispatch::makeLock(std::string_view /*label*/) {
  return std::make_unique<ProcessLock>();
}

void ProcessDispatch::ignoreDefaultAction(int signalNumber) { main->signals.add(signalNumber); }

void ProcessDispatch::runMainLoop() { main->context.run(); }

void ProcessDispatch::runMainLoopFor(double seconds) {
  main->context.poll();
  main->context.run_for(
      std::chrono::ceil<std::chrono::microseconds>(std::chrono::duration<double>(seconds)));
}

void ProcessDispatch::postToMain(std::function<void()> work) {
  asio::post(main->context, std::move(work));
}

void ProcessDispatch::stopMainLoop() { main->context.stop(); }

}  // namespace virtualmac
