// A durable, verified write of the state file is compared with the same system calls in plain C.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <optional>
#include <string>

#include "Benchmarks/BareStore.h"
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

void StoreWrite(benchmark::State& state) {
  const benchmarks::ScratchRoot root(".");
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

void PlainSystemCallsOfAStoreWrite(benchmark::State& state) {
  benchmarks::bareStoreWrites(state, benchmarks::ScratchRoot("."));
}
BENCHMARK(PlainSystemCallsOfAStoreWrite)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace virtualmac
