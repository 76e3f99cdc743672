#pragma once

#include <map>
#include <mutex>
#include <string>

#include "Platform/FileSystem.h"
#include "TinMac/System/Host.h"
#include "VirtualMac/Remote/RemotePlatform.h"

namespace tinmac {

/// The virtual Mac as the system's libraries see it. File calls go below the machine's root
/// directory and are announced to the machine as the calls of the helper's file seam that they
/// stand for: an open that does not block begins the reading of a whole file, rename replaces an
/// item, and stat asks whether a file exists.
class MachineHost final : public Host {
 public:
  MachineHost(virtualmac::RemotePlatform& connected, std::string rootDirectory);

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
  FileResult openToReadWhole(const char* path, int flags);

  virtualmac::RemotePlatform& remote;
  korvel::FileSystem& files;
  std::string root;
  std::mutex mutex;
  /// Descriptors whose file is read as a whole, each with the errno of every read; 0: none fails.
  /// Under the mutex.
  std::map<int, int> readWhole;
};

}  // namespace tinmac
