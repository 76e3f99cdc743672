#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string_view>

namespace tinmac {

/// The return value of a file call, and Linux's errno as the call left it.
struct FileResult {
  std::int64_t value = 0;
  int error = 0;
};

/// The system's libraries ask this of the machine that they run on. Paths are the program's own.
/// Any thread.
class Host {
 public:
  using AlarmID = std::uint64_t;

  virtual ~Host() = default;

  /// Nanoseconds since the machine's start, without the time that it slept.
  virtual std::int64_t uptime() = 0;
  /// Runs `handler` once when the uptime is reached; it only posts work.
  virtual AlarmID addAlarm(std::int64_t uptime, std::function<void()> handler) = 0;
  /// Does not wait for an alarm that has begun to run.
  virtual void removeAlarm(AlarmID alarm) = 0;

  /// Runs `work` on the main thread, in the order posted.
  virtual void postToMain(std::function<void()> work) = 0;
  /// Runs the main thread's loop; does not return.
  virtual void runMainLoop() = 0;
  /// Runs it for so many real seconds. Main thread.
  virtual void runMainLoopFor(double seconds) = 0;

  virtual void log(std::string_view subsystem, std::string_view category, std::uint8_t level,
                   std::string_view text) = 0;

  virtual FileResult mkdir(const char* path, mode_t mode) = 0;
  virtual FileResult chmod(const char* path, mode_t mode) = 0;
  virtual mode_t umask(mode_t mask) = 0;
  /// `flags` are Linux's.
  virtual FileResult open(const char* path, int flags, mode_t mode) = 0;
  virtual FileResult read(int descriptor, void* bytes, std::size_t count) = 0;
  virtual FileResult write(int descriptor, const void* bytes, std::size_t count) = 0;
  virtual FileResult fsync(int descriptor) = 0;
  virtual FileResult close(int descriptor) = 0;
  virtual FileResult unlink(const char* path) = 0;
  virtual FileResult rename(const char* from, const char* to) = 0;
  virtual FileResult stat(const char* path, struct stat& facts) = 0;
  virtual FileResult fstat(int descriptor, struct stat& facts) = 0;
};

/// The machine of this process; set once, before any image is bound.
void setHost(Host& host);
Host& host();

}  // namespace tinmac
