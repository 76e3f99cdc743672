#include "TinMac/Glue/MachineHost.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <span>
#include <utility>

#include "Platform/UnifiedLog.h"
#include "TinMac/System/Trap.h"
#include "VirtualMac/Remote/HelperHost.h"
#include "VirtualMac/Remote/MachineClock.h"
#include "VirtualMac/Remote/ProcessDispatch.h"

namespace tinmac {

using virtualmac::SeamCall;

namespace {

FileResult made(const korvel::PosixResult& result) { return {result.value, result.error}; }

template <class Value>
FileResult made(Value value) {
  return {static_cast<std::int64_t>(value), value < 0 ? errno : 0};
}

FileResult injected(const virtualmac::InjectedFault& fault) {
  return {-1, static_cast<int>(fault.code)};
}

}  // namespace

MachineHost::MachineHost(virtualmac::RemotePlatform& connected, std::string rootDirectory)
    : remote(connected), files(connected.platform().files), root(std::move(rootDirectory)) {}

std::int64_t MachineHost::uptime() { return remote.clock().uptime(); }

Host::AlarmID MachineHost::addAlarm(std::int64_t uptime, std::function<void()> handler) {
  return remote.clock().addAlarm(uptime, std::move(handler));
}

void MachineHost::removeAlarm(AlarmID alarm) { remote.clock().removeAlarm(alarm); }

void MachineHost::postToMain(std::function<void()> work) {
  remote.dispatch().postToMain(std::move(work));
}

void MachineHost::runMainLoop() { remote.dispatch().runMainLoop(); }

void MachineHost::runMainLoopFor(double seconds) { remote.dispatch().runMainLoopFor(seconds); }

void MachineHost::log(std::string_view subsystem, std::string_view category, std::uint8_t level,
                      std::string_view text) {
  remote.platform().log.emit(subsystem, category, static_cast<korvel::LogLevel>(level), text);
}

FileResult MachineHost::mkdir(const char* path, mode_t mode) {
  return made(files.mkdir(path, mode));
}

FileResult MachineHost::chmod(const char* path, mode_t mode) {
  return made(files.chmod(path, mode));
}

mode_t MachineHost::umask(mode_t mask) { return files.umask(mask); }

FileResult MachineHost::open(const char* path, int flags, mode_t mode) {
  switch (flags & ~O_CLOEXEC) {
    case O_RDONLY:
      return made(files.openReadOnly(path));
    case O_WRONLY | O_CREAT | O_EXCL:
      return made(files.openExclusive(path, mode));
    case O_RDONLY | O_NONBLOCK:
      return openToReadWhole(path, flags);
    default:
      trap("open with flags that the machine has no call for", std::to_string(flags));
  }
}

FileResult MachineHost::openToReadWhole(const char* path, int flags) {
  const auto verdict = remote.host().announceFileCall(SeamCall::fileRead);
  const int fault = verdict.fault ? static_cast<int>(verdict.fault->code) : 0;
  // A drive that cannot read still has the file's name.
  if (fault != 0 && fault != EIO) return injected(*verdict.fault);
  const int descriptor = ::open((root + path).c_str(), flags | O_CLOEXEC);
  const FileResult result = made(descriptor);
  if (descriptor >= 0) {
    const std::lock_guard lock(mutex);
    readWhole.emplace(descriptor, fault);
  }
  return result;
}

FileResult MachineHost::read(int descriptor, void* bytes, std::size_t count) {
  {
    const std::lock_guard lock(mutex);
    const auto found = readWhole.find(descriptor);
    if (found != readWhole.end() && found->second != 0) return {-1, found->second};
  }
  return made(::read(descriptor, bytes, count));
}

FileResult MachineHost::write(int descriptor, const void* bytes, std::size_t count) {
  return made(files.write(descriptor, std::span(static_cast<const char*>(bytes), count)));
}

FileResult MachineHost::fsync(int descriptor) { return made(files.fsync(descriptor)); }

FileResult MachineHost::close(int descriptor) {
  {
    const std::lock_guard lock(mutex);
    if (readWhole.erase(descriptor) != 0) return made(::close(descriptor));
  }
  return made(files.close(descriptor));
}

FileResult MachineHost::unlink(const char* path) { return made(files.unlink(path)); }

FileResult MachineHost::rename(const char* from, const char* to) {
  if (const auto verdict = remote.host().announceFileCall(SeamCall::fileReplaceItem); verdict.fault)
    return injected(*verdict.fault);
  const FileResult result = made(std::rename((root + from).c_str(), (root + to).c_str()));
  if (result.value == 0) remote.host().fileReplaced(to);
  return result;
}

FileResult MachineHost::stat(const char* path, struct stat& facts) {
  if (const auto verdict = remote.host().announceFileCall(SeamCall::fileExists); verdict.fault)
    return injected(*verdict.fault);
  return made(::stat((root + path).c_str(), &facts));
}

FileResult MachineHost::fstat(int descriptor, struct stat& facts) {
  return made(::fstat(descriptor, &facts));
}

}  // namespace tinmac
