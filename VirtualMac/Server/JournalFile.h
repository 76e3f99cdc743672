#pragma once

#include <cstdint>
#include <string>

namespace virtualmac {

/// The file that a machine's effects are appended to, a line each. No program that the machine
/// starts inherits it, and each line is in the file when `append` returns.
///
/// Failure: a line that the disk has no room for is lost; the machine goes on.
class JournalFile {
 public:
  JournalFile() = default;
  ~JournalFile();
  JournalFile(const JournalFile&) = delete;
  JournalFile& operator=(const JournalFile&) = delete;

  /// Begins it anew. False: it cannot be written, errno says why.
  bool open(const std::string& path);
  void append(std::string line);
  /// How many bytes it has.
  [[nodiscard]] std::uint64_t size() const { return written; }

 private:
  int descriptor = -1;
  std::uint64_t written = 0;
};

}  // namespace virtualmac
