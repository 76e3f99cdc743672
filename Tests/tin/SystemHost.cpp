#include "SystemHost.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "TinMac/System/Exports.h"

namespace tinmac::test {

namespace {

FileResult asLinuxLeftIt(std::int64_t value) { return {value, value < 0 ? errno : 0}; }

}  // namespace

TestHost::TestHost() { setHost(*this); }

void TestHost::advance(std::int64_t nanoseconds) {
  {
    const std::lock_guard lock(mutex);
    now += nanoseconds;
  }
  while (true) {
    std::function<void()> handler;
    {
      const std::lock_guard lock(mutex);
      const auto due = std::ranges::find_if(
          alarms, [this](const auto& entry) { return entry.second.uptime <= now; });
      if (due == alarms.end()) return;
      handler = std::move(due->second.handler);
      alarms.erase(due);
    }
    handler();
  }
}

bool TestHost::runMainUntil(const std::function<bool()>& condition) {
  return eventually([&] {
    std::vector<std::function<void()>> work;
    {
      const std::lock_guard lock(mutex);
      work.swap(posted);
    }
    for (const auto& piece : work) piece();
    return condition();
  });
}

std::size_t TestHost::alarmCount() {
  const std::lock_guard lock(mutex);
  return alarms.size();
}

std::vector<LoggedMessage> TestHost::logged() {
  const std::lock_guard lock(mutex);
  return messages;
}

std::int64_t TestHost::uptime() {
  const std::lock_guard lock(mutex);
  return now;
}

Host::AlarmID TestHost::addAlarm(std::int64_t uptime, std::function<void()> handler) {
  const std::lock_guard lock(mutex);
  alarms.emplace(++last, Alarm{uptime, std::move(handler)});
  return last;
}

void TestHost::removeAlarm(AlarmID alarm) {
  const std::lock_guard lock(mutex);
  alarms.erase(alarm);
}

void TestHost::postToMain(std::function<void()> work) {
  const std::lock_guard lock(mutex);
  posted.push_back(std::move(work));
}

void TestHost::runMainLoop() {
  runMainUntil([this] { return endMainLoopAtOnce; });
}

void TestHost::runMainLoopFor(double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  runMainUntil([end] { return std::chrono::steady_clock::now() >= end; });
}

void TestHost::log(std::string_view subsystem, std::string_view category, std::uint8_t level,
                   std::string_view text) {
  const std::lock_guard lock(mutex);
  messages.push_back({std::string(subsystem), std::string(category), level, std::string(text)});
}

FileResult TestHost::mkdir(const char* path, mode_t mode) {
  return asLinuxLeftIt(::mkdir(path, mode));
}
FileResult TestHost::chmod(const char* path, mode_t mode) {
  return asLinuxLeftIt(::chmod(path, mode));
}
mode_t TestHost::umask(mode_t mask) { return ::umask(mask); }
FileResult TestHost::open(const char* path, int flags, mode_t mode) {
  return asLinuxLeftIt(::open(path, flags, mode));
}
FileResult TestHost::read(int descriptor, void* bytes, std::size_t count) {
  return asLinuxLeftIt(::read(descriptor, bytes, count));
}
FileResult TestHost::write(int descriptor, const void* bytes, std::size_t count) {
  return asLinuxLeftIt(::write(descriptor, bytes, count));
}
FileResult TestHost::fsync(int descriptor) { return asLinuxLeftIt(::fsync(descriptor)); }
FileResult TestHost::close(int descriptor) { return asLinuxLeftIt(::close(descriptor)); }
FileResult TestHost::unlink(const char* path) { return asLinuxLeftIt(::unlink(path)); }
FileResult TestHost::rename(const char* from, const char* to) {
  return asLinuxLeftIt(::rename(from, to));
}
FileResult TestHost::stat(const char* path, struct stat& facts) {
  return asLinuxLeftIt(::stat(path, &facts));
}
FileResult TestHost::fstat(int descriptor, struct stat& facts) {
  return asLinuxLeftIt(::fstat(descriptor, &facts));
}

bool eventually(const std::function<bool()>& condition) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void* boundAddress(std::string_view symbol) {
  for (const Export& row : systemExports()) {
    if (row.name == symbol) return row.address;
  }
  return nullptr;
}

}  // namespace tinmac::test
