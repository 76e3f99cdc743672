// This program is the floor of a helper that holds a limit: every five seconds one of its threads
// wakes the other, which makes as many calls of another process as a tick waits for, one after the
// other, and computes nothing.

#include <semaphore.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <thread>

#include "Benchmarks/BareCall.h"

namespace {

/// So many answers a tick show with `strace -f -e recvfrom` in a helper that holds a limit.
constexpr int calls = 6;

void serve(sem_t& ticks, int machine) {
  for (;;) {
    if (sem_wait(&ticks) != 0) continue;
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
  sem_t ticks{};
  if (sem_init(&ticks, 0, 0) != 0) return 1;
  std::thread(serve, std::ref(ticks), ends[0]).detach();
  if (write(STDOUT_FILENO, "x", 1) != 1) return 1;
  for (;;) {
    std::this_thread::sleep_for(std::chrono::seconds(5));
    sem_post(&ticks);
  }
}
