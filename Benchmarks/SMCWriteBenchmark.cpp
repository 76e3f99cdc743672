// A verified SMC write is compared with the bare calls that it makes.

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>

#include "SMCWriter.h"

namespace korvel {
namespace {

/// An SMC of one four-byte key that costs nothing, so that only the writer is measured.
class OneKeySMC final : public SMCUserClient {
 public:
  ObjectRef matchAppleSMC() override { return 1; }
  KernReturn open(ObjectRef, ConnectionRef& connection) override {
    connection = 1;
    return kernSuccess;
  }
  KernReturn callStruct(ConnectionRef, SMCBlockView input, SMCBlockSpan output) override {
    ++calls;
    std::memset(output.data(), 0, output.size());
    switch (input[42]) {
      case 9:
        output[28] = 4;
        break;
      case 5:
        std::memcpy(&output[48], value.data(), value.size());
        break;
      case 6:
        std::memcpy(value.data(), &input[48], value.size());
        break;
      default:
        output[40] = 1;
    }
    return kernSuccess;
  }
  KernReturn close(ConnectionRef) override { return kernSuccess; }
  KernReturn objectRelease(ObjectRef) override { return kernSuccess; }

  std::int64_t calls = 0;

 private:
  std::array<std::uint8_t, 4> value{};
};

class SilentLog final : public UnifiedLog {
 public:
  void emit(std::string_view, std::string_view, LogLevel, std::string_view text) override {
    benchmark::DoNotOptimize(text.size());
  }
};

constexpr std::array<std::uint8_t, 4> pausePayload{1, 0, 0, 0};
constexpr std::array<std::uint8_t, 4> resumePayload{0, 0, 0, 0};

/// The key already has the value, so there is one read.
void VerifiedWriteUnchanged(benchmark::State& state) {
  OneKeySMC smc;
  SilentLog log;
  SMCWriter writer(smc, Logger(log, "SMCWriter"));
  for (auto _ : state) benchmark::DoNotOptimize(writer.writeKeyAndVerify("CHTE", resumePayload));
}
BENCHMARK(VerifiedWriteUnchanged);

/// The key changes every time: a read, a write, a read and a log line.
void VerifiedWriteChanging(benchmark::State& state) {
  OneKeySMC smc;
  SilentLog log;
  SMCWriter writer(smc, Logger(log, "SMCWriter"));
  bool pause = true;
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        writer.writeKeyAndVerify("CHTE", pause ? pausePayload : resumePayload));
    pause = !pause;
  }
}
BENCHMARK(VerifiedWriteChanging);

/// The floor makes as many bare calls, with blocks prepared beforehand.
void BareCalls(benchmark::State& state) {
  OneKeySMC smc;
  std::array<std::uint8_t, smcBlockSize> input{};
  std::array<std::uint8_t, smcBlockSize> output{};
  input[42] = 5;
  for (auto _ : state) {
    for (std::int64_t call = 0; call < state.range(0); ++call) {
      benchmark::DoNotOptimize(smc.callStruct(1, input, output));
    }
  }
}
BENCHMARK(BareCalls)->Arg(1)->Arg(3);

}  // namespace
}  // namespace korvel
