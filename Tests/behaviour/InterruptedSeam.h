#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/Dispatch.h"
#include "Platform/UnifiedLog.h"

namespace korvel::test {

/// A log that runs a test's code before and after one line is written.
class InterruptedLog final : public UnifiedLog {
 public:
  explicit InterruptedLog(UnifiedLog& realLog) : log(realLog) {}
  std::string line;  ///< The beginning of that line.
  std::function<void()> before, after;

  void emit(std::string_view subsystem, std::string_view category, LogLevel level,
            std::string_view text) override {
    const bool meant = !line.empty() && text.starts_with(line);
    if (meant && before) before();
    log.emit(subsystem, category, level, text);
    if (meant && after) after();
  }

 private:
  UnifiedLog& log;
};

/// Locks with one label run a test's code: `beforeLock` before the next lock, `afterUnlock` after
/// the next unlock.
class InterruptedLocks final : public Dispatch {
 public:
  InterruptedLocks(Dispatch& realDispatch, std::string watchedLabel)
      : dispatch(realDispatch), label(std::move(watchedLabel)) {}
  std::function<void()> beforeLock, afterUnlock;  ///< Each runs once and is then dropped.

  std::shared_ptr<WorkQueue> makeSerialQueue(std::string_view name) override {
    return dispatch.makeSerialQueue(name);
  }
  std::unique_ptr<TimerSource> makeTimer(const std::shared_ptr<WorkQueue>& queue) override {
    return dispatch.makeTimer(queue);
  }
  std::unique_ptr<SignalSource> makeSignalSource(int number) override {
    return dispatch.makeSignalSource(number);
  }
  std::shared_ptr<DispatchGroup> makeGroup() override { return dispatch.makeGroup(); }
  std::unique_ptr<LockPrimitive> makeLock(std::string_view name) override {
    std::unique_ptr<LockPrimitive> real = dispatch.makeLock(name);
    if (name != label) return real;
    return std::make_unique<Watched>(std::move(real), *this);
  }
  void ignoreDefaultAction(int number) override { dispatch.ignoreDefaultAction(number); }
  void runMainLoop() override { dispatch.runMainLoop(); }

 private:
  class Watched final : public LockPrimitive {
   public:
    Watched(std::unique_ptr<LockPrimitive> realLock, InterruptedLocks& hooks)
        : real(std::move(realLock)), owner(hooks) {}
    void lock() override {
      if (owner.beforeLock) std::exchange(owner.beforeLock, nullptr)();
      real->lock();
    }
    void unlock() override {
      real->unlock();
      if (owner.afterUnlock) std::exchange(owner.afterUnlock, nullptr)();
    }

   private:
    std::unique_ptr<LockPrimitive> real;
    InterruptedLocks& owner;
  };

  Dispatch& dispatch;
  std::string label;
};

}  // namespace korvel::test
