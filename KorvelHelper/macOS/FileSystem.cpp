#include "Platform/FileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <system_error>

#include "macOS/Adapters.h"

namespace korvel::macos {

namespace {

constexpr std::size_t largestFileBytes = std::size_t{16} << 20U;

ErrorObject posixError(int error) {
  return ErrorObject{
      .domain = "NSPOSIXErrorDomain",
      .code = error,
      .userInfo = {{localizedDescriptionKey, std::generic_category().message(error)}}};
}

std::unexpected<ErrorObject> failure(int error) { return std::unexpected(posixError(error)); }

template <class Value>
PosixResult result(Value value) {
  return PosixResult{.value = value, .error = value < 0 ? errno : 0};
}

/// Closes a descriptor at the end of a scope.
class Descriptor {
 public:
  explicit Descriptor(int opened) : number(opened) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  [[nodiscard]] int get() const { return number; }

 private:
  int number;
};

std::expected<std::string, ErrorObject> contentOf(int descriptor, std::size_t expectedBytes) {
  std::string content;
  content.reserve(expectedBytes);
  std::array<char, 16384> piece{};
  while (true) {
    const ssize_t count = ::read(descriptor, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failure(errno);
    if (count == 0) return content;
    content.append(piece.data(), static_cast<std::size_t>(count));
    if (content.size() > largestFileBytes) return failure(EFBIG);
  }
}

/// The file calls of this system; nothing but POSIX.
class PosixFileSystem final : public FileSystem {
 public:
  PosixResult mkdir(const std::string& path, std::uint32_t mode) override {
    return result(::mkdir(path.c_str(), static_cast<mode_t>(mode)));
  }
  PosixResult chmod(const std::string& path, std::uint32_t mode) override {
    return result(::chmod(path.c_str(), static_cast<mode_t>(mode)));
  }
  std::uint32_t umask(std::uint32_t mask) override { return ::umask(static_cast<mode_t>(mask)); }
  PosixResult openExclusive(const std::string& path, std::uint32_t mode) override {
    return result(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, static_cast<mode_t>(mode)));
  }
  PosixResult openReadOnly(const std::string& path) override {
    return result(::open(path.c_str(), O_RDONLY));
  }
  PosixResult write(int descriptor, std::span<const char> bytes) override {
    return result(::write(descriptor, bytes.data(), bytes.size()));
  }
  PosixResult fsync(int descriptor) override { return result(::fsync(descriptor)); }
  PosixResult close(int descriptor) override { return result(::close(descriptor)); }
  PosixResult unlink(const std::string& path) override { return result(::unlink(path.c_str())); }

  /// rename(2), and not the file manager's replace call. The file manager carries the old file's
  /// permissions over to the new content, so a state file once left readable would stay readable,
  /// and it does not promise to work where there is no old file, which is every first write. A
  /// rename within one directory is atomic, works with and without an old file, and the new file
  /// keeps the mode it was created with.
  std::expected<void, ErrorObject> replaceItem(const std::string& original,
                                               const std::string& replacement) override {
    if (std::rename(replacement.c_str(), original.c_str()) != 0) return failure(errno);
    return {};
  }

  bool fileExists(const std::string& path) override {
    struct stat status{};
    return ::stat(path.c_str(), &status) == 0;
  }

  /// Opened without blocking, so that a pipe put in the file's place cannot hold the caller up
  /// before it is seen to be no plain file.
  std::expected<std::string, ErrorObject> readFile(const std::string& path) override {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0) return failure(errno);
    struct stat status{};
    if (::fstat(file.get(), &status) != 0) return failure(errno);
    if (S_ISDIR(status.st_mode)) return failure(EISDIR);
    if (!S_ISREG(status.st_mode)) return failure(EINVAL);
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size > largestFileBytes) return failure(EFBIG);
    return contentOf(file.get(), size);
  }
};

}  // namespace

std::unique_ptr<FileSystem> makeFileSystem() { return std::make_unique<PosixFileSystem>(); }

}  // namespace korvel::macos
