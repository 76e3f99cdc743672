#pragma once

#include <memory>

#include "TinMac/System/DispatchQueue.h"
#include "TinMac/System/DispatchTime.h"

namespace tinmac {

/// Events as work on a queue; events that were not yet heard come as one. Made inactive. Its
/// handler and its context are set before it is activated, and it is activated before the program's
/// last reference goes: anything else traps. Any thread.
class DispatchSource : public DispatchObject {
 public:
  /// The handler is given the context as it is now.
  void setHandler(DispatchFunction function);
  void setContext(void* value) override;
  /// A second time changes nothing.
  void activate() override;
  /// No later event is heard, unless its handler has begun. A second time changes nothing.
  void cancel();

 protected:
  explicit DispatchSource(DispatchQueue& target);

  /// Both come once at most, not while the source's lock is held; stop can come before start ends.
  virtual void start() = 0;
  virtual void stop() = 0;

  void requireInactive(const char* call) const;
  void fire();

 private:
  void deliver();
  void abandoned() override;
  void dispose() override;

  mutable std::mutex mutex;
  Held<DispatchQueue> queue;
  DispatchFunction handler = nullptr;
  void* handlerContext = nullptr;
  bool active = false;
  bool cancelled = false;
  bool pending = false;
};

class DispatchTimer final : public DispatchSource {
 public:
  explicit DispatchTimer(DispatchQueue& target);

  /// `interval` in nanoseconds, or timeForever: one event. `first` timeForever: none.
  void set(DispatchTime first, std::uint64_t interval);

 private:
  /// The timer shares this with its alarm, which may run after the timer's end.
  struct Link;

  static void rise(const std::shared_ptr<Link>& link);
  static void arm(const std::shared_ptr<Link>& link);
  void start() override;
  void stop() override;

  std::shared_ptr<Link> link;
  DispatchTime firstTime = timeForever;
  std::uint64_t period = timeForever;
};

class DispatchSignal final : public DispatchSource {
 public:
  /// `number` is the Mac's.
  DispatchSignal(DispatchQueue& target, std::int32_t number);

 private:
  void start() override;
  void stop() override;

  std::mutex listenerMutex;
  std::int32_t signal;
  bool stopped = false;
  std::uint64_t listener = 0;
};

}  // namespace tinmac
