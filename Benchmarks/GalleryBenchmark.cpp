// The stories of the gallery are read and played in this process, one after the other, with all
// invariants on.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "VirtualMac/Scenarios/InProcessStage.h"
#include "VirtualMac/Scenarios/ScenarioRun.h"

namespace virtualmac {
namespace {

void Gallery(benchmark::State& state) {
  std::vector<std::string> files;
  for (const auto& each : std::filesystem::directory_iterator(GALLERY))
    files.push_back(each.path().string());
  std::ranges::sort(files);
  double virtualSeconds = 0;
  for (auto _ : state) {
    virtualSeconds = 0;
    for (const std::string& file : files) {
      const auto scenario = loadScenario(file);
      if (!scenario) return state.SkipWithError(scenario.error().c_str());
      InProcessStage stage(*scenario);
      const ScenarioOutcome outcome = playScenario(*scenario, stage, "");
      if (!outcome.passed) return state.SkipWithError(outcome.report.c_str());
      virtualSeconds += outcome.virtualSeconds;
    }
  }
  state.counters["stories"] = static_cast<double>(files.size());
  state.counters["virtualDays"] = virtualSeconds / 86400;
}
BENCHMARK(Gallery)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace virtualmac
