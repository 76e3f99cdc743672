#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace virtualmac {

class Lane;
class Scheduler;

/// A thread waits here for the baton. A baton given before the wait is remembered. The waiter sees
/// everything that the giver did before.
class BatonPass {
 public:
  void give();
  void await();

 private:
  std::mutex guard;
  std::condition_variable given;
  bool present = false;
};

/// A thread of the operating system that carries one lane after the other.
class Worker {
 public:
  Worker();
  ~Worker();  ///< Only while it is idle.
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// Gives it the baton together with a lane to start on. The caller gives up the baton.
  void start(Scheduler& onBehalfOf, std::shared_ptr<Lane> first);

  BatonPass pass;

 private:
  void work();

  Scheduler* scheduler = nullptr;
  std::shared_ptr<Lane> lane;
  std::thread thread;
};

/// Idle workers, kept for the next scheduler: a thousand worlds, one after the other, need no more
/// threads than one. Any thread.
class WorkerPool {
 public:
  static WorkerPool& shared();
  std::unique_ptr<Worker> take();
  void give(std::unique_ptr<Worker> worker);

 private:
  std::mutex guard;
  std::vector<std::unique_ptr<Worker>> idle;
};

}  // namespace virtualmac
