// A durable, verified write of the state file is compared with the same system calls in plain C.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "HelperPersistence.h"
#include "VirtualMac/Remote/LocalFileSystem.h"

namespace virtualmac {
namespace {

/// A machine that allows every file call at once.
class SilentHost final : public HelperHost {
 public:
  FileVerdict announceFileCall(SeamCall) override {
    return {.fault = std::nullopt, .writeLimit = UINT64_MAX};
  }
  void fileReplaced(std::string_view) override {}
  std::optional<std::string> requirementError(std::string_view) override { return std::nullopt; }
  PeerVerdict judge(std::int32_t, std::string_view) override { return PeerVerdict::Satisfies; }
  void journal(const Effect&) override {}
  std::optional<std::string> bundleExecutablePath() override { return std::nullopt; }
  korvel::PropertyValue bundleInfo(std::string_view) override { return {}; }
  MachineTime time() override { return {}; }
  std::optional<ConnectionBreak> connectionsBreak() override { return std::nullopt; }
};

class SilentLog final : public korvel::UnifiedLog {
 public:
  void emit(std::string_view, std::string_view, korvel::LogLevel, std::string_view) override {}
};

/// A temporary directory below the working directory, removed with the benchmark.
class ScratchRoot {
 public:
  ScratchRoot() {
    std::array<char, 32> name{"store-benchmark-XXXXXX"};
    path = std::filesystem::absolute(mkdtemp(name.data())).string();
    std::filesystem::create_directories(path + "/Library/Application Support");
  }
  ~ScratchRoot() { std::filesystem::remove_all(path); }
  ScratchRoot(const ScratchRoot&) = delete;
  ScratchRoot& operator=(const ScratchRoot&) = delete;

  std::string path;
};

void StoreWrite(benchmark::State& state) {
  const ScratchRoot root;
  SilentHost host;
  SilentLog log;
  LocalFileSystem files(root.path, host);
  korvel::HelperPersistence store(files, korvel::Logger(log, "Persistence"));
  const korvel::HelperState record;
  for (auto _ : state) {
    if (!store.write(record)) state.SkipWithError("the write failed");
  }
}
BENCHMARK(StoreWrite)->Unit(benchmark::kMicrosecond);

/// Makes the calls that a durable, verified write needs: mkdir, chmod, unlink, open, write, fsync,
/// close, rename, the directory's fsync, and a read. Returns true when all succeeded.
bool plainWrite(const std::string& directory, const std::string& file, const std::string& temporary,
                const std::string& payload) {
  const mode_t mask = umask(0077);
  if (mkdir(directory.c_str(), 0700) != 0) chmod(directory.c_str(), 0700);
  unlink(temporary.c_str());
  const int out = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
  bool good = out >= 0 &&
              write(out, payload.data(), payload.size()) == static_cast<ssize_t>(payload.size());
  good = good && fsync(out) == 0;
  close(out);
  good = good && rename(temporary.c_str(), file.c_str()) == 0;
  const int entry = open(directory.c_str(), O_RDONLY);
  good = good && entry >= 0 && fsync(entry) == 0;
  close(entry);
  std::array<char, 4096> back{};
  const int in = open(file.c_str(), O_RDONLY);
  const ssize_t count = read(in, back.data(), back.size());
  close(in);
  umask(mask);
  return good && count == static_cast<ssize_t>(payload.size()) &&
         payload.compare(0, payload.size(), back.data(), payload.size()) == 0;
}

void PlainSystemCallsOfAStoreWrite(benchmark::State& state) {
  const ScratchRoot root;
  const std::string directory = root.path + std::string(korvel::HelperPersistence::directory);
  const std::string payload = korvel::encodeFile(korvel::HelperState{});
  for (auto _ : state) {
    if (!plainWrite(directory, directory + "/state.json", directory + "/state.json.tmp", payload)) {
      state.SkipWithError("the write failed");
    }
  }
}
BENCHMARK(PlainSystemCallsOfAStoreWrite)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace virtualmac
