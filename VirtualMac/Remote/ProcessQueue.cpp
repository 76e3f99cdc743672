#include "VirtualMac/Remote/ProcessQueue.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "Base/Trap.h"
#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

struct ProcessQueue::State {
  explicit State(std::string_view queueLabel) : label(queueLabel) {}

  /// Runs the work while nothing else of the queue runs. The lock is held before and after.
  void run(korvel::Task work, std::unique_lock<std::mutex>& lock) {
    runner = std::this_thread::get_id();
    lock.unlock();
    work();
    lock.lock();
    runner = std::thread::id();
    if (!waiting.empty() || gone) changed.notify_one();
  }
  [[nodiscard]] bool isIdle() const { return runner.load() == std::thread::id(); }

  /// The queue's own thread.
  void serve() {
    hostsystem::nameThisThread(label);
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return isIdle() && (gone || !waiting.empty()); });
      if (waiting.empty()) return;
      korvel::Task next = std::move(waiting.front());
      waiting.pop_front();
      run(std::move(next), lock);
    }
  }

  const std::string label;
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<korvel::Task> waiting;
  std::atomic<std::thread::id> runner;  ///< Of the current piece of work; none: nothing runs.
  bool hasThread = false;
  bool gone = false;
};

ProcessQueue::ProcessQueue(std::string_view label) : state(std::make_shared<State>(label)) {}

ProcessQueue::~ProcessQueue() {
  const std::lock_guard lock(state->mutex);
  state->gone = true;
  state->changed.notify_one();
}

void ProcessQueue::async(korvel::Task work) {
  std::unique_lock lock(state->mutex);
  state->waiting.push_back(std::move(work));
  if (!std::exchange(state->hasThread, true)) {
    std::thread([serving = state] { serving->serve(); }).detach();
  } else if (state->isIdle()) {
    lock.unlock();  // Otherwise the thread would wake to wait for the lock.
    state->changed.notify_one();
  }
}

void ProcessQueue::sync(korvel::Task work) {
  if (isCurrent()) korvel::trap("a queue's own work waits for the queue");
  std::unique_lock lock(state->mutex);
  if (state->isIdle() && state->waiting.empty()) return state->run(std::move(work), lock);
  lock.unlock();
  std::promise<void> done;
  async([&work, &done] {
    work();
    done.set_value();
  });
  done.get_future().wait();
}

bool ProcessQueue::isCurrent() const { return state->runner == std::this_thread::get_id(); }

}  // namespace virtualmac
