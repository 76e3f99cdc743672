// A steady enforcement tick is compared with the platform calls that it must make. The benchmark
// also counts the virtual ticks in a second of real time with the journal on.

#include <benchmark/benchmark.h>

#include <array>

#include "Platform/IORegistry.h"
#include "Platform/PowerSources.h"
#include "Platform/SMCUserClient.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {
namespace {

constexpr double tickSeconds = 5;

/// A Mac above its limit of 80 %, on the adapter, with charging paused. Ticks stay steady while the
/// battery is refilled now and then, because it drains slowly even so.
class SteadyMac {
 public:
  SteadyMac() {
    fillUp();
    world.machine().adapter.connect();
    app = world.connectApp();
    app->await(app->setChargeLimit(80));
    world.runFor(60);
  }

  void fillUp() { world.machine().battery.setPercent(95); }

  World world;
  std::unique_ptr<AppClient> app;
};

/// Runs a thousand ticks at a time, as a simulation of days does; one costs a thousandth.
void ThousandSteadyTicks(benchmark::State& state) {
  SteadyMac mac;
  constexpr int ticks = 1000;
  const CallCounts before = mac.world.callCounts();
  for (auto _ : state) {
    mac.fillUp();
    mac.world.runFor(tickSeconds * ticks);
  }
  const CallCounts made = mac.world.callCounts() - before;
  const auto expected = static_cast<std::uint64_t>(state.iterations()) * ticks;
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
