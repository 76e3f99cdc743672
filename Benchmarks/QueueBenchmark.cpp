// Requests that are answered on the helper's queue are compared with a hop to another thread and
// back and a ping-pong between processes; those that are not, with themselves while the queue
// hangs.

#include <benchmark/benchmark.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "Benchmarks/BareStore.h"
#include "Benchmarks/HelperService.h"
#include "Benchmarks/Latencies.h"
#include "VirtualMac/Remote/ProcessQueue.h"

namespace benchmarks {
namespace {

// ---- a hop

/// One thread and one job at a time.
class BareWorker {
 public:
  ~BareWorker() {
    {
      const std::lock_guard lock(mutex);
      over = true;
    }
    posted.notify_one();
    thread.join();
  }

  void handOver() {
    std::unique_lock lock(mutex);
    waiting = true;
    posted.notify_one();
    answered.wait(lock, [this] { return !waiting; });
  }

 private:
  void serve() {
    std::unique_lock lock(mutex);
    for (;;) {
      posted.wait(lock, [this] { return waiting || over; });
      if (over) return;
      waiting = false;
      answered.notify_one();
    }
  }

  std::mutex mutex;
  std::condition_variable posted;
  std::condition_variable answered;
  bool waiting = false;
  bool over = false;
  std::thread thread{[this] { serve(); }};
};

void BareWorkerHop(benchmark::State& state) {
  BareWorker worker;
  for (auto _ : state) worker.handOver();
}
BENCHMARK(BareWorkerHop)->UseRealTime()->Unit(benchmark::kMicrosecond);

/// The same by the queue that the helper's process has.
void QueueHop(benchmark::State& state) {
  virtualmac::ProcessQueue queue("hop");
  std::mutex mutex;
  std::condition_variable answered;
  bool done = false;
  for (auto _ : state) {
    queue.async([&] {
      const std::lock_guard lock(mutex);
      done = true;
      answered.notify_one();
    });
    std::unique_lock lock(mutex);
    answered.wait(lock, [&] { return done; });
    done = false;
  }
}
BENCHMARK(QueueHop)->UseRealTime()->Unit(benchmark::kMicrosecond);

// ---- requests through the queue

/// Without a top-off that could be cancelled, nothing is done and nothing written.
void QueuedRequest(benchmark::State& state) {
  const HelperService helper(1);
  auto app = helper.connect();
  if (!app || !HelperService::ask(*app)) return state.SkipWithError("no helper");
  for (auto _ : state) {
    if (HelperService::answer(*app, korvel::operation::cancelTopUp).empty()) {
      state.SkipWithError("no reply");
    }
  }
}
BENCHMARK(QueuedRequest)->UseRealTime()->Unit(benchmark::kMicrosecond);

/// Two limits by turns, each of which is in the record when the reply comes.
void DurableLimit(benchmark::State& state) {
  const HelperService helper(1);
  auto app = helper.connect();
  if (!app || !HelperService::ask(*app)) return state.SkipWithError("no helper");
  bool higher = false;
  for (auto _ : state) {
    higher = !higher;
    const auto reply =
        HelperService::answer(*app, korvel::operation::setChargeLimit, higher ? 81 : 80);
    if (reply.empty()) state.SkipWithError("no reply");
  }
}
BENCHMARK(DurableLimit)->UseRealTime()->Unit(benchmark::kMicrosecond);

/// Its floor, in the folder in which the virtual Macs lie.
void BareStoreWrite(benchmark::State& state) {
  bareStoreWrites(state, ScratchRoot(std::filesystem::temp_directory_path()));
}
BENCHMARK(BareStoreWrite)->UseRealTime()->Unit(benchmark::kMicrosecond);

// ---- requests past the queue

bool becomesHung(const HelperService& helper) {
  for (int tries = 0; tries < 100; ++tries) {
    const auto status = helper.status();
    if (status.is_object() && status["callsUnderWay"] == nlohmann::json{"smcCallStruct"})
      return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

/// Pings two helpers, by turns a thousand times; the hardware of one hangs.
void PingWhileHardwareHangs(benchmark::State& state) {
  constexpr int turns = 20;
  constexpr int aTurn = 1000;
  const HelperService well(1);
  const HelperService hung(1);
  auto wellApp = well.connect();
  auto hungApp = hung.connect();
  // One that is still starting would hang in its probe of the hardware, and not answer at all.
  if (!wellApp || !hungApp || !HelperService::ask(*wellApp) || !HelperService::ask(*hungApp)) {
    return state.SkipWithError("no helper");
  }
  // Both hold a limit, and the loop's first tick of one does not come back.
  const bool hangs = hung.run("fault call-latency smcCallStruct 60 on");
  for (HelperService::Connection* app : {&*wellApp, &*hungApp}) {
    if (HelperService::answer(*app, korvel::operation::setChargeLimit).empty()) {
      return state.SkipWithError("no answer");
    }
  }
  if (!hangs || !becomesHung(hung)) return state.SkipWithError("the hardware does not hang");
  Latencies usual;
  Latencies meanwhile;
  bool answered = true;
  for (auto _ : state) {
    for (int turn = 0; turn < turns; ++turn) {
      for (int each = 0; each < aTurn; ++each)
        answered = usual.time([&] { return HelperService::ask(*wellApp); }) && answered;
      for (int each = 0; each < aTurn; ++each)
        answered = meanwhile.time([&] { return HelperService::ask(*hungApp); }) && answered;
    }
  }
  if (!answered || !becomesHung(hung)) return state.SkipWithError("it hung no longer");
  state.counters["usualHalf"] = usual.within(0.5);
  state.counters["usualMost"] = usual.within(0.99);
  state.counters["hungHalf"] = meanwhile.within(0.5);
  state.counters["hungMost"] = meanwhile.within(0.99);
}
BENCHMARK(PingWhileHardwareHangs)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace benchmarks
