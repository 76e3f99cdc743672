#include "TinMac/System/DispatchQueue.h"

#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <thread>

#include "TinMac/System/Books.h"
#include "TinMac/System/Host.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

bool onMainThread() { return ::gettid() == ::getpid(); }

/// Work that a thread waits for waits in the same line as the rest, so the order holds; when its
/// turn comes the waiting thread runs it itself.
class SerialQueue final : public DispatchQueue {
 public:
  SerialQueue() : DispatchQueue("dispatch_queue") {
    std::thread([this] { serve(); }).detach();
  }

  void async(Work work) override {
    // Released by the worker, so that the queue outlives its work.
    hold();
    const std::lock_guard lock(mutex);
    line.push_back(Place{std::move(work), nullptr});
    changed.notify_all();
  }

 private:
  struct Place {
    Work work;
    /// Names the waiting thread; null for work of the worker.
    const void* waiter = nullptr;
  };

  void runInTurn(const Work& work) override {
    const int waiter = 0;
    {
      std::unique_lock lock(mutex);
      line.push_back(Place{nullptr, &waiter});
      changed.wait(lock, [&] { return !busy && line.front().waiter == &waiter; });
      line.pop_front();
      busy = true;
    }
    {
      const Turn turn(*this);
      work();
    }
    const std::lock_guard lock(mutex);
    busy = false;
    changed.notify_all();
  }

  void dispose() override {
    const std::lock_guard lock(mutex);
    disposed = true;
    changed.notify_all();
  }

  void serve() {
    std::unique_lock lock(mutex);
    while (true) {
      changed.wait(lock, [&] { return !busy && (line.empty() ? disposed : isMine()); });
      if (line.empty()) break;
      Work work = std::move(line.front().work);
      line.pop_front();
      busy = true;
      lock.unlock();
      {
        const Turn turn(*this);
        work();
        work = nullptr;
      }
      lock.lock();
      busy = false;
      changed.notify_all();
      lock.unlock();
      letGo();
      lock.lock();
    }
    lock.unlock();
    finalize();
    delete this;
  }

  bool isMine() const { return line.front().waiter == nullptr; }

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Place> line;
  bool busy = false;
  bool disposed = false;
};

class MainQueue final : public DispatchQueue {
 public:
  MainQueue() : DispatchQueue("dispatch_main_queue") {}

  void async(Work work) override {
    host().postToMain([this, task = std::move(work)] {
      const Turn turn(*this);
      task();
    });
  }

  void retain() override {}
  void release() override {}

 private:
  /// The main thread itself runs it: the queue belongs to that thread.
  void runInTurn(const Work& work) override {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
    async([&] {
      work();
      const std::lock_guard lock(mutex);
      done = true;
      changed.notify_one();
    });
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return done; });
  }

  void dispose() override { trap("the main queue went", "it lives as long as the process"); }
};

thread_local void* innermost = nullptr;

}  // namespace

DispatchQueue::Turn::Turn(DispatchQueue& taken)
    : queue(&taken), outer(static_cast<Turn*>(std::exchange(innermost, this))) {}

DispatchQueue::Turn::~Turn() { innermost = outer; }

DispatchQueue::~DispatchQueue() {
  for (const auto& [key, specific] : specifics) {
    if (specific.destructor != nullptr) specific.destructor(specific.value);
  }
}

void DispatchQueue::sync(const Work& work) {
  if (runsOnThisThread()) trap("dispatch_sync_f onto a queue that waits for it", className());
  const Held<DispatchQueue> held(*this);
  runInTurn(work);
}

bool DispatchQueue::runsOnThisThread() const {
  for (const Turn* turn = static_cast<Turn*>(innermost); turn != nullptr; turn = turn->outer) {
    if (turn->queue == this) return true;
  }
  return onMainThread() && this == &mainQueue();
}

void DispatchQueue::setSpecific(const void* key, void* value, DispatchFunction destructor) {
  Specific former;
  {
    const std::lock_guard lock(specificsMutex);
    former = std::exchange(specifics[key], Specific{value, destructor});
    if (value == nullptr) specifics.erase(key);
  }
  if (former.destructor != nullptr) former.destructor(former.value);
}

void* DispatchQueue::specific(const void* key) const {
  const std::lock_guard lock(specificsMutex);
  const auto found = specifics.find(key);
  return found == specifics.end() ? nullptr : found->second.value;
}

DispatchQueue* DispatchQueue::current() {
  if (innermost != nullptr) return static_cast<Turn*>(innermost)->queue;
  return onMainThread() ? &mainQueue() : nullptr;
}

DispatchQueue* makeSerialQueue(const std::string& label, const std::string& qualityOfService) {
  noteQueue(label, qualityOfService);
  return new SerialQueue;
}

DispatchQueue& mainQueue() {
  static auto* const only = new MainQueue;
  return *only;
}

}  // namespace tinmac
