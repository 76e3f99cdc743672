// A steady enforcement tick is compared with the platform calls that it must make: a tick of the
// core alone, and one in virtual time, of which a second of real time holds many.

#include <benchmark/benchmark.h>

#include <array>
#include <memory>

#include "Benchmarks/SteadyMac.h"
#include "HelperImpl.h"
#include "Platform/Dispatch.h"
#include "Platform/IORegistry.h"
#include "Platform/PowerSources.h"
#include "Platform/SMCUserClient.h"
#include "Tests/Allocations.h"
#include "Tests/LateDispatch.h"
#include "Tests/PlatformWith.h"
#include "Tests/behaviour/Doubles.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {
namespace {

using benchmarks::SteadyMac;

/// One tick costs a thousandth. Journal and all invariants are on.
void ThousandSteadyTicks(benchmark::State& state) {
  SteadyMac mac(true);
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

/// Runs the handler of the core's timer again and again, on the queue where it belongs.
void SteadyTickOfTheCore(benchmark::State& state) {
  World world;
  world.machine().battery.setPercent(95);
  world.machine().adapter.connect();
  korvel::Platform& real = world.startBareHelper();
  korvel::test::LateDispatch dispatch(real.dispatch);
  korvel::Platform platform = korvel::test::with(real, dispatch);
  const auto core = korvel::HelperImpl::create(platform);
  core->clientDidConnect();
  core->setChargeLimit(80, korvel::test::ignored());
  world.runFor(60);
  const CallCounts before = world.callCounts();
  double allocations = 0;
  const auto [queue, tick] = dispatch.lastTimer();
  queue->async([&] {
    const auto memory = korvel::test::allocations::made();
    for (auto _ : state) tick();
    allocations = static_cast<double>(korvel::test::allocations::made() - memory);
  });
  world.runUntilIdle();
  const CallCounts made = world.callCounts() - before;
  if (made[SeamCall::smcCallStruct] != static_cast<std::uint64_t>(state.iterations())) {
    state.SkipWithError(("the ticks were not steady: " + made.text()).c_str());
  }
  state.counters["allocations"] = allocations / static_cast<double>(state.iterations());
}
BENCHMARK(SteadyTickOfTheCore);

/// The floor of a tick makes its readings and its one SMC read directly, and takes the platform's
/// lock for each of the five fields that the tick reads or writes under one.
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
    const std::unique_ptr<korvel::LockPrimitive> lock = platform.dispatch.makeLock("bare");
    const auto memory = korvel::test::allocations::made();
    for (auto _ : state) {
      for (int field = 0; field < 5; ++field) {
        lock->lock();
        lock->unlock();
      }
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
    state.counters["allocations"] =
        static_cast<double>(korvel::test::allocations::made() - memory) /
        static_cast<double>(state.iterations());
    platform.smc.close(connection);
    platform.smc.objectRelease(smc);
  });
}
BENCHMARK(BarePlatformCallsOfATick);

}  // namespace
}  // namespace virtualmac
