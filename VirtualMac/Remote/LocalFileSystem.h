#pragma once

#include <string>

#include "Platform/FileSystem.h"
#include "VirtualMac/Remote/HelperHost.h"

namespace virtualmac {

/// Makes the file calls for real, in the calling process. Paths lie below a directory that stands
/// for the virtual machine's root. Each call is announced to the machine first, which may put a
/// fault in its place; the machine also hears of each finished replacement, for its journal.
///
/// Failure: the operating system's own. Symbolic links may lead out of the directory.
class LocalFileSystem final : public korvel::FileSystem {
 public:
  LocalFileSystem(std::string rootDirectory, HelperHost& machineHost);

  korvel::PosixResult mkdir(const std::string& path, std::uint32_t mode) override;
  korvel::PosixResult chmod(const std::string& path, std::uint32_t mode) override;
  std::uint32_t umask(std::uint32_t mask) override;
  korvel::PosixResult openExclusive(const std::string& path, std::uint32_t mode) override;
  korvel::PosixResult openReadOnly(const std::string& path) override;
  korvel::PosixResult write(int descriptor, std::span<const char> bytes) override;
  korvel::PosixResult fsync(int descriptor) override;
  korvel::PosixResult close(int descriptor) override;
  korvel::PosixResult unlink(const std::string& path) override;
  std::expected<void, korvel::ErrorObject> replaceItem(const std::string& original,
                                                       const std::string& replacement) override;
  bool fileExists(const std::string& path) override;
  std::expected<std::string, korvel::ErrorObject> readFile(const std::string& path) override;

 private:
  [[nodiscard]] std::string below(const std::string& path) const { return root + path; }

  std::string root;
  HelperHost& host;
};

}  // namespace virtualmac
