// Threads of a virtual Mac run in turn, never side by side. On one core they take turns in half the
// time, because a core need not be woken for each.

#include <sched.h>

namespace {

bool stayOnThisCore() {
  const int core = sched_getcpu();
  if (core < 0) return false;
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(static_cast<unsigned>(core), &cores);
  return sched_setaffinity(0, sizeof cores, &cores) == 0;
}

[[maybe_unused]] const bool stays = stayOnThisCore();

}  // namespace
