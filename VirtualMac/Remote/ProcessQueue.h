#pragma once

#include <memory>
#include <string_view>

#include "Base/SerialQueue.h"

namespace virtualmac {

/// A serial queue of a process with real threads, with a thread only if it needs one: work that is
/// waited for runs on the waiting thread while nothing else runs or waits; the first work that is
/// posted starts the queue's own thread.
///
/// The thread ends when the queue is gone and its work is done. Any thread.
///
/// Failure: none. The process ends when the operating system refuses a thread.
class ProcessQueue final : public korvel::WorkQueue {
 public:
  explicit ProcessQueue(std::string_view label);
  ~ProcessQueue() override;
  ProcessQueue(const ProcessQueue&) = delete;
  ProcessQueue& operator=(const ProcessQueue&) = delete;

  void async(korvel::Task work) override;
  void sync(korvel::Task work) override;
  [[nodiscard]] bool isCurrent() const override;

 private:
  struct State;
  std::shared_ptr<State> state;  ///< Shared with the thread, which may outlive the queue.
};

}  // namespace virtualmac
