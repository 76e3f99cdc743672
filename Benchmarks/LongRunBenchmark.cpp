// These benchmarks tell what long runs leave: a million ticks in this process, a month of a story
// in this process, and a month of a machine with its helper as processes.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <thread>

#include "Benchmarks/HelperService.h"
#include "Benchmarks/ProcessFigures.h"
#include "Benchmarks/SteadyMac.h"
#include "HelperPersistence.h"
#include "VirtualMac/Scenarios/InProcessStage.h"
#include "VirtualMac/Scenarios/ScenarioRun.h"

namespace benchmarks {
namespace {

constexpr double daySeconds = 86400;
constexpr int days = 30;

// ---- ticks

/// Bytes that are allocated now, whatever was freed before.
double heapBytes() { return static_cast<double>(mallinfo2().uordblks); }

void tellMemory(benchmark::State& state, const std::string& when) {
  const ProcessFigures figures = figuresOf(getpid()).value_or(ProcessFigures());
  state.counters["resident" + when] = figures.residentKiB;
  state.counters["private" + when] = figures.privateKiB;
  state.counters["heap" + when] = heapBytes();
}

void millionTicks(benchmark::State& state, bool watched, bool keepsJournal) {
  constexpr std::uint64_t early = 100;
  constexpr std::uint64_t thousands = 1000;
  virtualmac::WorldOptions options;
  options.keepJournal = keepsJournal;
  SteadyMac mac(watched, options);
  std::uint64_t entries = 0;
  mac.world.journal().addListener([&](const virtualmac::Journal::Entry&) { ++entries; });
  const auto before = mac.world.callCounts();
  std::uint64_t entriesEarly = 0;
  // The first look takes pages itself.
  tellMemory(state, "Early");
  for (auto _ : state) {
    for (std::uint64_t each = 1; each <= thousands; ++each) {
      mac.runThousandTicks();
      if (each != early) continue;
      tellMemory(state, "Early");
      entriesEarly = entries;
    }
  }
  tellMemory(state, "");
  state.counters["entriesEarly"] = static_cast<double>(entriesEarly);
  state.counters["entries"] = static_cast<double>(entries);
  const auto made = mac.world.callCounts() - before;
  if (made[virtualmac::SeamCall::powerSourcesCopyInfo] != thousands * 1000) {
    return state.SkipWithError(("there were other calls: " + made.text()).c_str());
  }
  if (!watched) return;
  mac.rules->finish();
  if (!mac.rules->violations().empty()) state.SkipWithError("a rule was broken");
}
void MillionTicks(benchmark::State& state) { millionTicks(state, false, false); }
void MillionTicksWatched(benchmark::State& state) { millionTicks(state, true, false); }
void MillionTicksKept(benchmark::State& state) { millionTicks(state, false, true); }
BENCHMARK(MillionTicks)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(MillionTicksWatched)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(MillionTicksKept)->Iterations(1)->Unit(benchmark::kSecond);

// ---- a month

/// Sums up the lines of a journal.
struct JournalSize {
  double bytes = 0;
  double logBytes = 0;
  double lines = 0;

  void add(std::string_view line, bool isLog) {
    bytes += static_cast<double>(line.size() + 1);
    if (isLog) logBytes += static_cast<double>(line.size() + 1);
    ++lines;
  }
  void tell(benchmark::State& state) const {
    state.counters["journalBytes"] = bytes;
    state.counters["logBytes"] = logBytes;
    state.counters["journalLines"] = lines;
  }
};

/// Like the gallery's week, thirty days long.
constexpr std::string_view month = R"(name: A month between desk and sofa
description: Thirty days alike, as in the week.
start: {battery: 70}
steps:
  - {at: 00:00:30, do: [connect, set-limit 80], within: 30m gate paused}
  - at: 08:00
    repeat: 30
    every: 1d
    steps:
      - {at: 10:00, do: adapter off, within: 2h battery < 70}
      - {at: 12:30, do: adapter on, within: 10s gate charging}
      - {at: 15:00, do: lid closed, within: 5s asleep}
      - {at: 23:30, do: lid open, within: 5s awake}
ends: 31d 12:00
never: [battery > 80, battery < 40, log "NOT being applied"]
)";

void MonthInProcess(benchmark::State& state) {
  const auto scenario = virtualmac::parseScenario(std::string(month), "month");
  if (!scenario) return state.SkipWithError(scenario.error().c_str());
  JournalSize size;
  for (auto _ : state) {
    size = JournalSize();
    virtualmac::InProcessStage stage(*scenario);
    stage.journal().addListener([&size](const virtualmac::Journal::Entry& entry) {
      size.add(virtualmac::journalLine(entry), entry.kind == "log");
    });
    const auto outcome = virtualmac::playScenario(*scenario, stage, "");
    if (!outcome.passed) return state.SkipWithError(outcome.report.c_str());
    state.counters["virtualDays"] = outcome.virtualSeconds / daySeconds;
    state.counters["recordBytes"] = static_cast<double>(stage.savedState().value_or("").size());
  }
  size.tell(state);
}
BENCHMARK(MonthInProcess)->UseRealTime()->Unit(benchmark::kMillisecond);

/// Pauses until so many virtual seconds have passed, at this speed.
class VirtualPause {
 public:
  explicit VirtualPause(double virtualSpeed) : speed(virtualSpeed) {}
  void until(double virtualSeconds) const {
    std::this_thread::sleep_until(begin +
                                  std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                      std::chrono::duration<double>(virtualSeconds / speed)));
  }

 private:
  double speed;
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};

bool playDays(const HelperService& helper, const VirtualPause& pause) {
  struct Deed {
    double hour;
    const char* command;
  };
  constexpr std::array deeds{Deed{10, "set adapter off"}, Deed{12.5, "set adapter on"},
                             Deed{15, "set lid closed"}, Deed{23.5, "set lid open"}};
  for (int day = 0; day < days; ++day) {
    for (const Deed& deed : deeds) {
      pause.until(day * daySeconds + deed.hour * 3600);
      if (!helper.run(deed.command)) return false;
    }
  }
  pause.until(days * daySeconds);
  return true;
}

void tellFiles(benchmark::State& state, const HelperService& helper) {
  JournalSize size;
  std::ifstream journal(helper.folder().journal());
  for (std::string line; std::getline(journal, line);) {
    const auto entry = virtualmac::journalEntryFrom(line);
    size.add(line, entry && entry->kind == "log");
  }
  size.tell(state);
  std::error_code none;
  const auto record = std::filesystem::file_size(
      helper.folder().disk() + std::string(korvel::HelperPersistence::statePath), none);
  state.counters["recordBytes"] = none ? 0 : static_cast<double>(record);
}

/// Notes what both processes hold; false: one is gone.
bool tellBoth(benchmark::State& state, const std::string& when, pid_t helper, pid_t machine) {
  const auto ofHelper = figuresOf(helper);
  const auto ofMachine = figuresOf(machine);
  if (!ofHelper || !ofMachine) return false;
  state.counters["helperResident" + when] = ofHelper->residentKiB;
  state.counters["helperPrivate" + when] = ofHelper->privateKiB;
  state.counters["helperDescriptors" + when] = ofHelper->descriptors;
  state.counters["machineResident" + when] = ofMachine->residentKiB;
  state.counters["machinePrivate" + when] = ofMachine->privateKiB;
  state.counters["machineDescriptors" + when] = ofMachine->descriptors;
  return true;
}

void MonthAmongProcesses(benchmark::State& state) {
  constexpr double speed = 10'000;
  const HelperService helper(1);
  auto app = helper.connect();
  if (!app || HelperService::answer(*app, korvel::operation::setChargeLimit).empty()) {
    return state.SkipWithError("no helper");
  }
  const pid_t process = HelperService::pid(*app);
  const pid_t machine = HelperService::machinePid(*app);
  bool good = true;
  for (auto _ : state) {
    good = helper.run("speed 10000") && good;
    const VirtualPause pause(speed);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    good = good && tellBoth(state, "Early", process, machine) && playDays(helper, pause);
  }
  good = good && helper.run("speed 1") && tellBoth(state, "", process, machine);
  const auto status = helper.status();
  if (!good || !status.is_object() || status["helperStarts"] != 1) {
    return state.SkipWithError("the machine or its helper did not last");
  }
  state.counters["virtualDays"] = status["seconds"].get<double>() / daySeconds;
  tellFiles(state, helper);
}
BENCHMARK(MonthAmongProcesses)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace benchmarks
