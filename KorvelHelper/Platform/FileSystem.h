#pragma once

#include <cstdint>
#include <expected>
#include <span>
#include <string>

#include "Base/ErrorObject.h"

namespace korvel {

/// The return value of a POSIX call, and errno as the call left it.
struct PosixResult {
  std::int64_t value = 0;
  int error = 0;
};

/// The file calls of the state store, one call each. One caller at a time.
class FileSystem {
 public:
  virtual ~FileSystem() = default;
  virtual PosixResult mkdir(const std::string& path, std::uint32_t mode) = 0;  ///< mkdir(2)
  virtual PosixResult chmod(const std::string& path, std::uint32_t mode) = 0;  ///< chmod(2)
  virtual std::uint32_t umask(std::uint32_t mask) = 0;  ///< umask(2): the old mask
  /// open(path, O_WRONLY | O_CREAT | O_EXCL, mode): the descriptor, or -1.
  virtual PosixResult openExclusive(const std::string& path, std::uint32_t mode) = 0;
  /// open(path, O_RDONLY): the descriptor, or -1.
  virtual PosixResult openReadOnly(const std::string& path) = 0;
  /// write(2): the count written, or -1.
  virtual PosixResult write(int descriptor, std::span<const char> bytes) = 0;
  virtual PosixResult fsync(int descriptor) = 0;            ///< fsync(2)
  virtual PosixResult close(int descriptor) = 0;            ///< close(2)
  virtual PosixResult unlink(const std::string& path) = 0;  ///< unlink(2)
  /// Puts the file at `replacement` in the place of `original`, which need not exist. Afterwards
  /// `original` has the replacement's content and mode; on failure it is as it was.
  virtual std::expected<void, ErrorObject> replaceItem(const std::string& original,
                                                       const std::string& replacement) = 0;
  /// [NSFileManager fileExistsAtPath:]: also true for anything but a plain file.
  virtual bool fileExists(const std::string& path) = 0;
  /// The whole content of a plain file; anything else, and more than 16 MiB, is an error.
  virtual std::expected<std::string, ErrorObject> readFile(const std::string& path) = 0;
};

}  // namespace korvel
