#include "VirtualMac/Remote/LocalFileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "VirtualMac/Machine/FileErrors.h"

namespace virtualmac {

using korvel::ErrorObject;
using korvel::PosixResult;

namespace {

template <class Value>
PosixResult result(Value value) {
  return {static_cast<std::int64_t>(value), value < 0 ? errno : 0};
}

PosixResult injected(const InjectedFault& fault) { return {-1, static_cast<int>(fault.code)}; }

/// Does not follow links.
bool isThere(const std::string& path) {
  struct stat facts{};
  return ::lstat(path.c_str(), &facts) == 0;
}

ErrorObject replaceError(int error) {
  return cocoaError(error == ENOENT ? noSuchFileError : writeUnknownError,
                    std::system_category().message(error));
}

ErrorObject readError(int error) {
  if (error == ENOENT)
    return cocoaError(readNoSuchFileError, std::system_category().message(error));
  return cocoaError(error == EFBIG ? readTooLargeError : readUnknownError,
                    std::system_category().message(error));
}

std::expected<std::string, ErrorObject> readAll(int descriptor, std::size_t size) {
  std::string content;
  content.resize(size + 1);
  std::size_t filled = 0;
  for (;;) {
    const ssize_t got = ::read(descriptor, content.data() + filled, content.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::unexpected(readError(errno));
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
    if (filled > largestReadableFile) return std::unexpected(readError(EFBIG));
    if (filled == content.size()) content.resize(content.size() * 2);
  }
  content.resize(filled);
  return content;
}

}  // namespace

LocalFileSystem::LocalFileSystem(std::string rootDirectory, HelperHost& machineHost)
    : root(std::move(rootDirectory)), host(machineHost) {}

PosixResult LocalFileSystem::mkdir(const std::string& path, std::uint32_t mode) {
  const auto verdict = host.announceFileCall(SeamCall::fileMkdir);
  if (verdict.fault) return injected(*verdict.fault);
  if (verdict.changeRefusal != 0 && !isThere(below(path)))
    return {-1, static_cast<int>(verdict.changeRefusal)};
  return result(::mkdir(below(path).c_str(), static_cast<mode_t>(mode)));
}

PosixResult LocalFileSystem::chmod(const std::string& path, std::uint32_t mode) {
  if (const auto verdict = host.announceFileCall(SeamCall::fileChmod); verdict.fault)
    return injected(*verdict.fault);
  return result(::chmod(below(path).c_str(), static_cast<mode_t>(mode)));
}

std::uint32_t LocalFileSystem::umask(std::uint32_t mask) {
  host.announceFileCall(SeamCall::fileUmask);
  return ::umask(static_cast<mode_t>(mask));
}

PosixResult LocalFileSystem::openExclusive(const std::string& path, std::uint32_t mode) {
  if (const auto verdict = host.announceFileCall(SeamCall::fileOpenExclusive); verdict.fault)
    return injected(*verdict.fault);
  return result(::open(below(path).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
}

PosixResult LocalFileSystem::openReadOnly(const std::string& path) {
  if (const auto verdict = host.announceFileCall(SeamCall::fileOpenReadOnly); verdict.fault)
    return injected(*verdict.fault);
  return result(::open(below(path).c_str(), O_RDONLY | O_CLOEXEC));
}

PosixResult LocalFileSystem::write(int descriptor, std::span<const char> bytes) {
  const auto verdict = host.announceFileCall(SeamCall::fileWrite);
  if (verdict.fault) return injected(*verdict.fault);
  return result(
      ::write(descriptor, bytes.data(), std::min<std::size_t>(bytes.size(), verdict.writeLimit)));
}

PosixResult LocalFileSystem::fsync(int descriptor) {
  if (const auto verdict = host.announceFileCall(SeamCall::fileFsync); verdict.fault)
    return injected(*verdict.fault);
  return result(::fsync(descriptor));
}

PosixResult LocalFileSystem::close(int descriptor) {
  const auto verdict = host.announceFileCall(SeamCall::fileClose);
  // The call is made whatever the fault: a close that reports an error still closes.
  const PosixResult closed = result(::close(descriptor));
  return verdict.fault ? injected(*verdict.fault) : closed;
}

PosixResult LocalFileSystem::unlink(const std::string& path) {
  const auto verdict = host.announceFileCall(SeamCall::fileUnlink);
  if (verdict.fault) return injected(*verdict.fault);
  if (verdict.changeRefusal != 0 && isThere(below(path)))
    return {-1, static_cast<int>(verdict.changeRefusal)};
  return result(::unlink(below(path).c_str()));
}

std::expected<void, ErrorObject> LocalFileSystem::replaceItem(const std::string& original,
                                                              const std::string& replacement) {
  if (const auto verdict = host.announceFileCall(SeamCall::fileReplaceItem); verdict.fault)
    return std::unexpected(cocoaError(writeUnknownError, verdict.fault->text));
  if (::rename(below(replacement).c_str(), below(original).c_str()) != 0)
    return std::unexpected(replaceError(errno));
  host.fileReplaced(original);
  return {};
}

bool LocalFileSystem::fileExists(const std::string& path) {
  if (host.announceFileCall(SeamCall::fileExists).fault) return false;
  struct stat facts{};
  return ::stat(below(path).c_str(), &facts) == 0;
}

std::expected<std::string, ErrorObject> LocalFileSystem::readFile(const std::string& path) {
  if (const auto verdict = host.announceFileCall(SeamCall::fileRead); verdict.fault)
    return std::unexpected(cocoaError(readUnknownError, verdict.fault->text));
  // Without O_NONBLOCK the open of a FIFO would block for ever.
  const int descriptor = ::open(below(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return std::unexpected(readError(errno));
  struct stat facts{};
  std::expected<std::string, ErrorObject> content = std::unexpected(readError(EINVAL));
  if (::fstat(descriptor, &facts) != 0)
    content = std::unexpected(readError(errno));
  else if (S_ISDIR(facts.st_mode))
    content = std::unexpected(readError(EISDIR));
  else if (S_ISREG(facts.st_mode) && facts.st_size > static_cast<off_t>(largestReadableFile))
    content = std::unexpected(readError(EFBIG));
  else if (S_ISREG(facts.st_mode))
    content = readAll(descriptor, static_cast<std::size_t>(facts.st_size));
  ::close(descriptor);
  return content;
}

}  // namespace virtualmac
