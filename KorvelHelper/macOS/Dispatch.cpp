#include "Platform/Dispatch.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <os/lock.h>

#include <cmath>
#include <csignal>
#include <limits>
#include <string>

#include "macOS/Adapters.h"
#include "macOS/AutoreleasePool.h"

namespace korvel::macos {

namespace {

std::int64_t nanoseconds(double seconds) {
  constexpr double perSecond = 1e9;
  constexpr double longest = 9e9;  // 285 years: the most that fits 64 bits of nanoseconds.
  return std::llround(std::fmin(std::fmax(seconds, 0.0), longest) * perSecond);
}

dispatch_time_t afterSeconds(double seconds) {
  return dispatch_time(DISPATCH_TIME_NOW, nanoseconds(seconds));
}

void runTask(void* context) { (*static_cast<Task*>(context))(); }

void runPostedTask(void* context) {
  const std::unique_ptr<Task> task(static_cast<Task*>(context));
  runInAutoreleasePool(runTask, task.get());
}

void runWaitedTask(void* context) { runInAutoreleasePool(runTask, context); }

/// One serial dispatch queue. The queue carries its own address as a mark, so that work can tell
/// which queue it runs on; libdispatch keeps the queue alive for the work it still holds, so no two
/// living queues share a mark.
class SerialDispatchQueue final : public WorkQueue {
 public:
  explicit SerialDispatchQueue(std::string_view label)
      : queue(dispatch_queue_create(
            std::string(label).c_str(),
            dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL, QOS_CLASS_UTILITY, 0))) {
    dispatch_queue_set_specific(queue, &markKey, queue, nullptr);
  }
  SerialDispatchQueue(const SerialDispatchQueue&) = delete;
  SerialDispatchQueue& operator=(const SerialDispatchQueue&) = delete;
  ~SerialDispatchQueue() override { dispatch_release(queue); }

  void async(Task work) override {
    dispatch_async_f(queue, std::make_unique<Task>(std::move(work)).release(), runPostedTask);
  }

  void sync(Task work) override { dispatch_sync_f(queue, &work, runWaitedTask); }

  [[nodiscard]] bool isCurrent() const override { return dispatch_get_specific(&markKey) == queue; }

  [[nodiscard]] dispatch_queue_t underlying() const { return queue; }

 private:
  static constexpr char markKey = 0;

  dispatch_queue_t queue;
};

/// Owns a dispatch source and its event handler. The handler lives in the source's context and is
/// deleted by the source's finalizer, after the last event: a handler may so drop the very source
/// that runs it. A source must have been activated before its last reference goes.
class EventSource {
 public:
  explicit EventSource(dispatch_source_t created) : source(created) {
    if (source == nullptr) trap("a dispatch source could not be created");
    handler = std::make_unique<std::function<void()>>().release();
    // In this order: the source takes the context over when the handler is set.
    dispatch_set_context(source, handler);
    dispatch_set_finalizer_f(source, deleteHandler);
    dispatch_source_set_event_handler_f(source, runHandler);
  }
  EventSource(const EventSource&) = delete;
  EventSource& operator=(const EventSource&) = delete;
  ~EventSource() {
    dispatch_source_cancel(source);
    dispatch_activate(source);
    dispatch_release(source);
  }

  /// Before activate() only: from then on the queue reads the handler.
  void setEventHandler(std::function<void()> body) { *handler = std::move(body); }
  void activate() { dispatch_activate(source); }
  void cancel() { dispatch_source_cancel(source); }
  [[nodiscard]] dispatch_source_t underlying() const { return source; }

 private:
  static void callHandler(void* context) {
    const auto& body = *static_cast<const std::function<void()>*>(context);
    if (body) body();
  }
  static void runHandler(void* context) { runInAutoreleasePool(callHandler, context); }
  static void deleteHandler(void* context) {
    delete static_cast<std::function<void()>*>(context);  // NOLINT(cppcoreguidelines-owning-memory)
  }

  dispatch_source_t source;
  std::function<void()>* handler;
};

class DispatchTimer final : public TimerSource {
 public:
  explicit DispatchTimer(const SerialDispatchQueue& queue)
      : events(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue.underlying())) {}

  void setEventHandler(std::function<void()> handler) override {
    events.setEventHandler(std::move(handler));
  }

  void schedule(double delaySeconds, std::optional<double> intervalSeconds,
                std::uint64_t leewayNanoseconds) override {
    const std::uint64_t interval = intervalSeconds
                                       ? static_cast<std::uint64_t>(nanoseconds(*intervalSeconds))
                                       : DISPATCH_TIME_FOREVER;
    dispatch_source_set_timer(events.underlying(), afterSeconds(delaySeconds), interval,
                              leewayNanoseconds);
  }

  void resume() override { events.activate(); }
  void cancel() override { events.cancel(); }

 private:
  EventSource events;
};

class DispatchSignal final : public SignalSource {
 public:
  explicit DispatchSignal(int signalNumber)
      : events(dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL,
                                      static_cast<std::uintptr_t>(signalNumber), 0,
                                      dispatch_get_main_queue())) {}

  void setEventHandler(std::function<void()> handler) override {
    events.setEventHandler(std::move(handler));
  }
  void resume() override { events.activate(); }

 private:
  EventSource events;
};

class WorkGroup final : public DispatchGroup {
 public:
  WorkGroup() : group(dispatch_group_create()) {}
  WorkGroup(const WorkGroup&) = delete;
  WorkGroup& operator=(const WorkGroup&) = delete;
  ~WorkGroup() override { dispatch_release(group); }

  void enter() override { dispatch_group_enter(group); }
  void leave() override { dispatch_group_leave(group); }
  bool wait(double timeoutSeconds) override {
    return dispatch_group_wait(group, afterSeconds(timeoutSeconds)) == 0;
  }

 private:
  dispatch_group_t group;
};

/// The lock that lends its waiter's priority to its holder: XPC threads wait for a utility queue.
class UnfairLock final : public LockPrimitive {
 public:
  void lock() override { os_unfair_lock_lock(&state); }
  void unlock() override { os_unfair_lock_unlock(&state); }

 private:
  os_unfair_lock state = OS_UNFAIR_LOCK_INIT;
};

/// libdispatch, and the main run loop that services the main queue. All queues that reach makeTimer
/// were made here.
class SystemDispatch final : public Dispatch {
 public:
  std::shared_ptr<WorkQueue> makeSerialQueue(std::string_view label) override {
    return std::make_shared<SerialDispatchQueue>(label);
  }
  std::unique_ptr<TimerSource> makeTimer(const std::shared_ptr<WorkQueue>& queue) override {
    return std::make_unique<DispatchTimer>(static_cast<const SerialDispatchQueue&>(*queue));
  }
  std::unique_ptr<SignalSource> makeSignalSource(int signalNumber) override {
    return std::make_unique<DispatchSignal>(signalNumber);
  }
  std::shared_ptr<DispatchGroup> makeGroup() override { return std::make_shared<WorkGroup>(); }
  std::unique_ptr<LockPrimitive> makeLock(std::string_view /*label*/) override {
    return std::make_unique<UnfairLock>();
  }
  // The kernel reports a signal to its source before it looks whether the signal is ignored.
  void ignoreDefaultAction(int signalNumber) override { std::signal(signalNumber, SIG_IGN); }
  void runMainLoop() override { CFRunLoopRun(); }
};

}  // namespace

std::unique_ptr<Dispatch> makeDispatch() { return std::make_unique<SystemDispatch>(); }

}  // namespace korvel::macos
