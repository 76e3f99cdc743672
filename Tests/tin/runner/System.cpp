// Functions of Apple's libraries that the tests need beyond what the helper needs. They are linked
// into the test program itself, so the helper is never offered them. The process is one of Linux,
// whose kernel they ask directly.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <os/lock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <mutex>

namespace {

constexpr std::int64_t killProcess = 129;

std::int64_t askLinux(std::int64_t call, std::int64_t first, std::int64_t second) {
  register std::int64_t number __asm("x8") = call;
  register std::int64_t result __asm("x0") = first;
  register std::int64_t other __asm("x1") = second;
  __asm volatile("svc #0" : "+r"(result) : "r"(number), "r"(other) : "memory");
  return result;
}

}  // namespace

/// The signals that the tests send have the same numbers on both systems.
extern "C" int kill(pid_t process, int signal) {
  return askLinux(killProcess, process, signal) == 0 ? 0 : -1;
}

extern "C" int access(const char* path, int wanted) {
  struct stat status{};
  if (stat(path, &status) != 0) return -1;
  const bool isRefused = (wanted & X_OK) != 0 && (status.st_mode & S_IXUSR) == 0;
  return isRefused ? -1 : 0;
}

_LIBCPP_BEGIN_NAMESPACE_STD

namespace {

/// Behind the mark that a mutex is made with lies only what the system keeps there.
os_unfair_lock_t lockIn(void* mutex) {
  return reinterpret_cast<os_unfair_lock_t>(static_cast<char*>(mutex) + sizeof(long));
}

}  // namespace

// NOLINTNEXTLINE(modernize-use-equals-default): the declaration stands elsewhere
mutex::~mutex() noexcept {}
void mutex::lock() { os_unfair_lock_lock(lockIn(native_handle())); }
void mutex::unlock() noexcept { os_unfair_lock_unlock(lockIn(native_handle())); }

namespace chrono {

/// The tin Mac's uptime counts nanoseconds.
steady_clock::time_point steady_clock::now() noexcept {
  return time_point(nanoseconds(dispatch_time(DISPATCH_TIME_NOW, 0)));
}

/// A tin Mac has one calendar: the machine's.
system_clock::time_point system_clock::now() noexcept {
  return time_point(duration_cast<system_clock::duration>(
      chrono::duration<double>(CFAbsoluteTimeGetCurrent() + kCFAbsoluteTimeIntervalSince1970)));
}

}  // namespace chrono

_LIBCPP_END_NAMESPACE_STD
