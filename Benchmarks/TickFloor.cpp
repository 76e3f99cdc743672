// This program is the floor of a helper that holds a limit: every five seconds one of its threads
// wakes the other, which makes as many calls of another process as a tick waits for, one after the
// other, and computes nothing.

#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "Benchmarks/BareCall.h"

namespace {

/// So many answers a tick show with `strace -f -e recvfrom` in a helper that holds a limit.
constexpr int calls = 6;

struct Ticks {
  std::mutex mutex;
  std::condition_variable changed;
  int due = 0;
};

void takeNext(Ticks& ticks) {
  std::unique_lock lock(ticks.mutex);
  ticks.changed.wait(lock, [&ticks] { return ticks.due > 0; });
  --ticks.due;
}

void serve(Ticks& ticks, int machine) {
  for (;;) {
    takeNext(ticks);
    for (int each = 0; each < calls; ++each) {
      if (!benchmarks::bareCall(machine)) _exit(1);
    }
  }
}

}  // namespace

int main() {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) return 1;
  const pid_t machine = fork();
  if (machine < 0) return 1;
  if (machine == 0) {
    close(ends[0]);
    while (benchmarks::answerBareCall(ends[1])) continue;
    _exit(0);
  }
  close(ends[1]);
  Ticks ticks;
  std::thread(serve, std::ref(ticks), ends[0]).detach();
  if (write(STDOUT_FILENO, "x", 1) != 1) return 1;
  for (;;) {
    std::this_thread::sleep_for(std::chrono::seconds(5));
    {
      const std::lock_guard lock(ticks.mutex);
      ++ticks.due;
    }
    ticks.changed.notify_one();
  }
}
