#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string>

#include "HelperPersistence.h"
#include "Tests/unit/FakesLog.h"
#include "Tests/unit/RecordedMac.h"

namespace korvel::test {

inline const std::string directory = "/Library/Application Support/com.korvel.app.helper";
inline const std::string statePath = directory + "/state.json";
inline const std::string temporaryPath = directory + "/state.json.tmp";

using RecordedFiles = Recorded<FileSystem>;

/// The machine's disk, with a script for what write returns, call by call.
class ScriptedFiles final : public RecordedFiles {
 public:
  using RecordedFiles::RecordedFiles;

  /// Returned by the next calls of write, before writes succeed again. A positive value writes that
  /// many bytes.
  std::deque<PosixResult> writes;

  PosixResult write(int descriptor, std::span<const char> bytes) override {
    if (writes.empty()) return RecordedFiles::write(descriptor, bytes);
    const PosixResult scripted = writes.front();
    writes.pop_front();
    if (scripted.value > 0) {
      const auto size = std::min(bytes.size(), static_cast<std::size_t>(scripted.value));
      return RecordedFiles::write(descriptor, bytes.first(size));
    }
    calls.emplace_back("write");
    return scripted;
  }
};

/// The store of the helper's record, on the disk of a machine.
struct StoreBench {
  FakeLog log;
  RecordedMac mac;
  virtualmac::Disk& disk = mac.machine.disk;
  virtualmac::FilesClient& process = mac.process->files;
  ScriptedFiles files{mac.seam.files, mac.calls};
  HelperPersistence store{files, Logger(log, "Persistence")};

  /// The n-th call from now fails with an errno.
  void fail(virtualmac::SeamCall call, std::uint64_t n, int number) {
    mac.faults.failNth(call, n, {number, ""});
  }
  [[nodiscard]] std::string content(const std::string& path) const {
    return disk.content(path).value();
  }
  [[nodiscard]] std::uint32_t mode(const std::string& path) const {
    return disk.facts(path).value().mode;
  }
  [[nodiscard]] bool exists(const std::string& path) const { return disk.facts(path).has_value(); }
};

}  // namespace korvel::test
