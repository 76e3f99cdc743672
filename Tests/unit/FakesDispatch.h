#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch.h"

namespace korvel::test {

/// A queue that runs its work where it is posted, one piece inside the other's post.
class InlineQueue final : public WorkQueue {
 public:
  void async(Task work) override { run(std::move(work)); }
  void sync(Task work) override {
    EXPECT_FALSE(running) << "a wait for the queue from the queue: a deadlock";
    run(std::move(work));
  }
  [[nodiscard]] bool isCurrent() const override { return running; }

 private:
  void run(Task work) {
    const bool before = running;
    running = true;
    work();
    running = before;
  }

  bool running = false;
};

/// Gives inline queues and nothing else: no unit below the core has timers, signals or locks.
class InlineDispatch final : public Dispatch {
 public:
  std::vector<std::string> labels;
  std::vector<std::shared_ptr<InlineQueue>> queues;

  std::shared_ptr<WorkQueue> makeSerialQueue(std::string_view label) override {
    labels.emplace_back(label);
    return queues.emplace_back(std::make_shared<InlineQueue>());
  }
  std::unique_ptr<TimerSource> makeTimer(const std::shared_ptr<WorkQueue>& /*queue*/) override {
    return unexpected("a timer");
  }
  std::unique_ptr<SignalSource> makeSignalSource(int /*signalNumber*/) override {
    return unexpected("a signal source");
  }
  std::shared_ptr<DispatchGroup> makeGroup() override { return unexpected("a group"); }
  std::unique_ptr<LockPrimitive> makeLock(std::string_view /*label*/) override {
    return unexpected("a lock");
  }
  void ignoreDefaultAction(int /*signalNumber*/) override { unexpected("a signal's action"); }
  void runMainLoop() override { unexpected("the main loop"); }

  /// True while work of any queue runs.
  [[nodiscard]] bool insideQueue() const {
    for (const auto& queue : queues) {
      if (queue->isCurrent()) return true;
    }
    return false;
  }

 private:
  static std::nullptr_t unexpected(const char* what) {
    ADD_FAILURE() << "asked for " << what;
    return nullptr;
  }
};

}  // namespace korvel::test
