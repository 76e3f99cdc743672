// A steady enforcement tick is compared with the platform calls that it must make. The benchmark
// also counts the virtual ticks in a second of real time with the journal on.

#include <benchmark/benchmark.h>

#include <array>

#include "Benchmarks/SteadyMac.h"
#include "Platform/IORegistry.h"
#include "Platform/PowerSources.h"
#include "Platform/SMCUserClient.h"

namespace virtualmac {
namespace {

using benchmarks::SteadyMac;

/// One tick costs a thousandth.
void ThousandSteadyTicks(benchmark::State& state) {
  SteadyMac mac;
  const CallCounts before = mac.world.callCounts();
  for (auto _ : state) {
    mac.runThousandTicks();
  }
  const CallCounts made = mac.world.callCounts() - before;
  const auto expected = static_cast<std::uint64_t>(state.iterations()) * 1000;
  if (made[SeamCall::smcCallStruct] != expected || made[SeamCall::logEmit] != 0) {
    state.SkipWithError(("the ticks were not steady: " + made.text()).c_str());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(expected));
}
BENCHMARK(ThousandSteadyTicks)->UseRealTime()->Unit(benchmark::kMicrosecond);

/// The floor of a tick makes its readings and its one SMC read directly.
void BarePlatformCallsOfATick(benchmark::State& state) {
  SteadyMac mac;
  mac.world.onMain([&] {
    korvel::Platform& platform = mac.world.platform();
    korvel::ConnectionRef connection = 0;
    const korvel::ObjectRef smc = platform.smc.matchAppleSMC();
    if (platform.smc.open(smc, connection) != korvel::kernSuccess) {
      state.SkipWithError("no SMC");
      return;
    }
    std::array<std::uint8_t, korvel::smcBlockSize> input{};
    input[0] = 'E', input[1] = 'T', input[2] = 'H', input[3] = 'C';  // CHTE, little-endian
    input[28] = 4;                                                   // its size
    input[42] = 5;                                                   // read
    for (auto _ : state) {
      const korvel::HandleRef info = platform.powerSources.copyInfo();
      const korvel::PowerSourceList list = platform.powerSources.copyList(info);
      benchmark::DoNotOptimize(platform.powerSources.getDescription(info, list.elements.front()));
      platform.powerSources.release(list.handle);
      platform.powerSources.release(info);
      const korvel::ObjectRef battery = platform.registry.getMatchingService("AppleSmartBattery");
      benchmark::DoNotOptimize(platform.registry.createProperty(battery, "ExternalConnected"));
      platform.registry.objectRelease(battery);
      std::array<std::uint8_t, korvel::smcBlockSize> output{};
      benchmark::DoNotOptimize(platform.smc.callStruct(connection, input, output));
    }
    platform.smc.close(connection);
    platform.smc.objectRelease(smc);
  });
}
BENCHMARK(BarePlatformCallsOfATick);

}  // namespace
}  // namespace virtualmac
