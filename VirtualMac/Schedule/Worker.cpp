#include "VirtualMac/Schedule/Worker.h"

#include <utility>

#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

void BatonPass::give() {
  // Notifies under the guard, because the waiter may destroy this object right after it wakes.
  const std::lock_guard hold(guard);
  present = true;
  given.notify_one();
}

void BatonPass::await() {
  std::unique_lock hold(guard);
  given.wait(hold, [this] { return present; });
  present = false;
}

Worker::Worker() : thread([this] { work(); }) {}

Worker::~Worker() {
  scheduler = nullptr;
  pass.give();
  thread.join();
}

void Worker::start(Scheduler& onBehalfOf, std::shared_ptr<Lane> first) {
  scheduler = &onBehalfOf;
  lane = std::move(first);
  pass.give();
}

void Worker::work() {
  for (;;) {
    pass.await();
    if (scheduler == nullptr) return;
    scheduler->serve(*this, std::move(lane));
  }
}

WorkerPool& WorkerPool::shared() {
  static WorkerPool pool;
  return pool;
}

std::unique_ptr<Worker> WorkerPool::take() {
  const std::lock_guard hold(guard);
  if (idle.empty()) return std::make_unique<Worker>();
  std::unique_ptr<Worker> worker = std::move(idle.back());
  idle.pop_back();
  return worker;
}

void WorkerPool::give(std::unique_ptr<Worker> worker) {
  const std::lock_guard hold(guard);
  idle.push_back(std::move(worker));
}

}  // namespace virtualmac
