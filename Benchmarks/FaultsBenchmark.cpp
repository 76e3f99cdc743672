// Virtual ticks and stories a second with all invariants on, while more and more is wrong.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Benchmarks/SteadyMac.h"
#include "Tests/swarm/Swarm.h"
#include "Tests/swarm/SwarmPlan.h"
#include "Tests/sweeps/Checks.h"
#include "VirtualMac/Machine/Faults.h"

namespace benchmarks {
namespace {

constexpr std::size_t mostFaults = 8;

// ---- ticks

/// The loop of a helper that holds a limit goes on with all of them. It does not meet the first
/// four while it is steady; of the others three make its calls take time, and with the last one
/// each tick writes the key anew.
constexpr std::array<std::string_view, mostFaults> faultsOfTicks{
    "temperature-unreadable",
    "lid-unknown",
    "settings-refused",
    "smc-silent-refusal CHTE",
    "smc-latency 0.001",
    "call-latency smcCallStruct 0.001",
    "call-latency powerSourcesCopyInfo 0.001",
    "smc-junk CHTE 0 0 7"};

void TicksWithFaults(benchmark::State& state) {
  virtualmac::WorldOptions options;
  options.keepJournal = false;
  SteadyMac mac(true, options);
  for (std::size_t each = 0; each < static_cast<std::size_t>(state.range(0)); ++each) {
    const auto done = virtualmac::setFault(mac.world.machine(), faultsOfTicks.at(each), true);
    if (!done) return state.SkipWithError(done.error().c_str());
  }
  const auto before = mac.world.callCounts();
  for (auto _ : state) mac.runThousandTicks();
  const auto made = mac.world.callCounts() - before;
  const auto expected = static_cast<std::uint64_t>(state.iterations()) * 1000;
  if (made[virtualmac::SeamCall::powerSourcesCopyInfo] != expected) {
    return state.SkipWithError(("there were other ticks: " + made.text()).c_str());
  }
  if (!mac.rules->violations().empty()) {
    return state.SkipWithError(mac.rules->violations().front().c_str());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(expected));
}

// ---- stories

/// Plans of the swarm that have enough faults, of which as many as asked for are left.
std::vector<swarm::SwarmPlan> plansWith(std::size_t faults) {
  constexpr std::size_t wanted = 40;
  std::vector<swarm::SwarmPlan> plans;
  for (std::uint64_t seed = 1; plans.size() < wanted; ++seed) {
    swarm::SwarmPlan plan = swarm::planFor(seed);
    if (plan.machineFaults.size() < mostFaults) continue;
    plan.machineFaults.resize(faults);
    plan.callFaults.clear();
    plans.push_back(std::move(plan));
  }
  return plans;
}

/// Each rages and heals as in the swarm's tests, and nothing may be found.
void StoriesWithFaults(benchmark::State& state) {
  const auto plans = plansWith(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    for (const swarm::SwarmPlan& plan : plans) {
      sweeps::Findings findings;
      swarm::Swarm story(plan);
      story.rage(findings);
      if (findings.empty()) story.healAndConverge(findings);
      if (!findings.empty()) return state.SkipWithError((plan.text() + findings.text()).c_str());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(plans.size()));
}

void numbersOfFaults(benchmark::internal::Benchmark* made) {
  for (const int faults : {0, 1, 2, 4, 8}) made->Arg(faults);
  made->UseRealTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(TicksWithFaults)->Apply(numbersOfFaults);
BENCHMARK(StoriesWithFaults)->Apply(numbersOfFaults);

}  // namespace
}  // namespace benchmarks
