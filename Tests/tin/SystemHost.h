#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "TinMac/System/Host.h"

namespace tinmac::test {

struct LoggedMessage {
  std::string subsystem;
  std::string category;
  int level;
  std::string text;
};

/// A machine for tests: its clock moves only when told, its main loop runs on the test's thread,
/// and its files are Linux's own.
class TestHost final : public Host {
 public:
  /// Becomes the process's machine.
  TestHost();

  /// Moves the clock in one step, then runs the alarms that are due.
  void advance(std::int64_t nanoseconds);
  /// Runs main-thread work until the condition holds. False: it did not within ten seconds.
  bool runMainUntil(const std::function<bool()>& condition);
  /// The main loop is to return, as a machine's never does.
  bool endMainLoopAtOnce = false;
  [[nodiscard]] std::size_t alarmCount();
  [[nodiscard]] std::vector<LoggedMessage> logged();

  std::int64_t uptime() override;
  AlarmID addAlarm(std::int64_t uptime, std::function<void()> handler) override;
  void removeAlarm(AlarmID alarm) override;
  void postToMain(std::function<void()> work) override;
  void runMainLoop() override;
  void runMainLoopFor(double seconds) override;
  void log(std::string_view subsystem, std::string_view category, std::uint8_t level,
           std::string_view text) override;
  FileResult mkdir(const char* path, mode_t mode) override;
  FileResult chmod(const char* path, mode_t mode) override;
  mode_t umask(mode_t mask) override;
  FileResult open(const char* path, int flags, mode_t mode) override;
  FileResult read(int descriptor, void* bytes, std::size_t count) override;
  FileResult write(int descriptor, const void* bytes, std::size_t count) override;
  FileResult fsync(int descriptor) override;
  FileResult close(int descriptor) override;
  FileResult unlink(const char* path) override;
  FileResult rename(const char* from, const char* to) override;
  FileResult stat(const char* path, struct stat& facts) override;
  FileResult fstat(int descriptor, struct stat& facts) override;

 private:
  struct Alarm {
    std::int64_t uptime;
    std::function<void()> handler;
  };

  std::mutex mutex;
  std::int64_t now = 1'000'000'000;
  std::map<AlarmID, Alarm> alarms;
  AlarmID last = 0;
  std::vector<std::function<void()>> posted;
  std::vector<LoggedMessage> messages;
};

/// Waits until the condition holds. False: it did not within ten seconds.
bool eventually(const std::function<bool()>& condition);

/// The address that a program binds for a symbol; null: nobody has it.
void* boundAddress(std::string_view symbol);

template <class Signature>
Signature* bound(std::string_view symbol) {
  return reinterpret_cast<Signature*>(boundAddress(symbol));
}

}  // namespace tinmac::test
