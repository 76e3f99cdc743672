#pragma once

#include <memory>
#include <string>

#include "Platform/FileSystem.h"

namespace virtualmac {

/// Runs the Mac's file adapter below a temporary directory, which is removed with the object.
class FilesBelow final : public korvel::FileSystem {
 public:
  FilesBelow();
  FilesBelow(const FilesBelow&) = delete;
  FilesBelow& operator=(const FilesBelow&) = delete;
  ~FilesBelow() override;

  [[nodiscard]] const std::string& directory() const { return root; }

  korvel::PosixResult mkdir(const std::string& path, std::uint32_t mode) override {
    return files->mkdir(root + path, mode);
  }
  korvel::PosixResult chmod(const std::string& path, std::uint32_t mode) override {
    return files->chmod(root + path, mode);
  }
  std::uint32_t umask(std::uint32_t mask) override { return files->umask(mask); }
  korvel::PosixResult openExclusive(const std::string& path, std::uint32_t mode) override {
    return files->openExclusive(root + path, mode);
  }
  korvel::PosixResult openReadOnly(const std::string& path) override {
    return files->openReadOnly(root + path);
  }
  korvel::PosixResult write(int descriptor, std::span<const char> bytes) override {
    return files->write(descriptor, bytes);
  }
  korvel::PosixResult fsync(int descriptor) override { return files->fsync(descriptor); }
  korvel::PosixResult close(int descriptor) override { return files->close(descriptor); }
  korvel::PosixResult unlink(const std::string& path) override {
    return files->unlink(root + path);
  }
  std::expected<void, korvel::ErrorObject> replaceItem(const std::string& original,
                                                       const std::string& replacement) override {
    return files->replaceItem(root + original, root + replacement);
  }
  bool fileExists(const std::string& path) override { return files->fileExists(root + path); }
  std::expected<std::string, korvel::ErrorObject> readFile(const std::string& path) override {
    return files->readFile(root + path);
  }

 private:
  std::unique_ptr<korvel::FileSystem> files;
  std::string root;
};

}  // namespace virtualmac
