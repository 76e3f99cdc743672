// These benchmarks run the helper as a process, beside two services that people use today and
// beside bare programs. The services and the helper are measured by the same functions.

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <thread>

#include "Benchmarks/FloorProgram.h"
#include "Benchmarks/HelperService.h"
#include "Benchmarks/PeerService.h"
#include "Benchmarks/ProcessFigures.h"

namespace benchmarks {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int launchdSpeed = 1000;
/// As many as the helper and the services have with one client.
constexpr const char* threadsOfAService = "4";

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

// ---- start and end

/// Measures from the connection to a service that is not running to its first answer, and then
/// from SIGTERM to its end.
template <class Service>
void startAndEnd(benchmark::State& state, const Service& service) {
  double ends = 0;
  for (auto _ : state) {
    const auto begin = Clock::now();
    auto connection = service.connect();
    if (!connection || !service.ask(*connection)) return state.SkipWithError("no answer");
    state.SetIterationTime(secondsSince(begin));
    const auto end = secondsToEnd(service.pid(*connection));
    if (!end) return state.SkipWithError("it does not end");
    ends += *end;
    connection.reset();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  state.counters["endMilliseconds"] = 1e3 * ends / static_cast<double>(state.iterations());
}

void StartToFirstAnswer(benchmark::State& state) {
  startAndEnd(state, HelperService(launchdSpeed));
}
BENCHMARK(StartToFirstAnswer)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);

void PeerStart(benchmark::State& state, const Peer& peer) { startAndEnd(state, PeerService(peer)); }
BENCHMARK_CAPTURE(PeerStart, upowerd, upower)
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(PeerStart, powerProfiles, powerProfiles)
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);

void floorStart(benchmark::State& state, const std::vector<std::string>& words) {
  for (auto _ : state) {
    const auto begin = Clock::now();
    const FloorProgram program(words);
    if (!program.spoke) return state.SkipWithError("the floor's program did not start");
    state.SetIterationTime(secondsSince(begin));
  }
}

void EmptyProgramToFirstByte(benchmark::State& state) { floorStart(state, {EMPTY_PROGRAM}); }
BENCHMARK(EmptyProgramToFirstByte)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);

void BareStartToFirstByte(benchmark::State& state) {
  std::array<char, 40> name{"/tmp/korvel-benchmark-XXXXXX"};
  if (mkdtemp(name.data()) == nullptr) return state.SkipWithError("no folder");
  const std::string folder = name.data();
  floorStart(state, {START_FLOOR, folder});
  std::filesystem::remove_all(folder);
}
BENCHMARK(BareStartToFirstByte)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);

/// The end of a helper whose hardware does not answer.
void EndWhileHardwareHangs(benchmark::State& state) {
  const HelperService helper(1);
  // launchd lets ten seconds pass between two starts.
  for (auto _ : state) {
    auto app = helper.connect();
    if (!app || !HelperService::ask(*app)) return state.SkipWithError("no answer");
    const bool hangs = helper.run("fault call-latency smcCallStruct 60 on");
    const auto end = secondsToEnd(HelperService::pid(*app));
    if (!hangs || !end) return state.SkipWithError("it does not end");
    state.SetIterationTime(*end);
    static_cast<void>(helper.run("fault call-latency smcCallStruct 60 off"));
  }
}
BENCHMARK(EndWhileHardwareHangs)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

// ---- requests

template <class Service>
void roundTrips(benchmark::State& state, const Service& service) {
  auto connection = service.connect();
  if (!connection || !service.ask(*connection)) return state.SkipWithError("no answer");
  for (auto _ : state) {
    if (!service.ask(*connection)) state.SkipWithError("no answer");
  }
}

void PropertyRead(benchmark::State& state, const Peer& peer) {
  roundTrips(state, PeerService(peer));
}
BENCHMARK_CAPTURE(PropertyRead, upowerd, upower)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(PropertyRead, powerProfiles, powerProfiles)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

void RoundTrip(benchmark::State& state, const korvel::Operation& operation) {
  const HelperService helper(1);
  auto app = helper.connect();
  if (!app || !HelperService::ask(*app)) return state.SkipWithError("no helper");
  for (auto _ : state) {
    if (HelperService::answer(*app, operation).empty()) state.SkipWithError("no reply");
  }
}
BENCHMARK_CAPTURE(RoundTrip, ping, korvel::operation::ping)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(RoundTrip, getState, korvel::operation::getState)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(RoundTrip, setChargeLimit, korvel::operation::setChargeLimit)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

/// The floor exchanges as many bytes between two processes, with nothing in between.
void BarePingPong(benchmark::State& state) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) {
    return state.SkipWithError("no sockets");
  }
  std::array<char, 64> message{};
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    while (true) {
      const ssize_t count = read(ends[1], message.data(), message.size());
      if (count <= 0 || write(ends[1], message.data(), static_cast<std::size_t>(count)) != count) {
        _exit(0);
      }
    }
  }
  close(ends[1]);
  for (auto _ : state) {
    if (write(ends[0], message.data(), message.size()) != 64 ||
        read(ends[0], message.data(), message.size()) != 64) {
      state.SkipWithError("the other process is gone");
    }
  }
  close(ends[0]);
  waitpid(child, nullptr, 0);
}
BENCHMARK(BarePingPong)->UseRealTime()->Unit(benchmark::kMicrosecond);

// ---- memory, threads, and waiting

void tell(benchmark::State& state, const ProcessFigures& figures) {
  state.counters["residentKiB"] = figures.residentKiB;
  state.counters["privateKiB"] = figures.privateKiB;
  state.counters["threads"] = figures.threads;
}

/// Figures of a service that has answered one client, which stays.
void footprint(benchmark::State& state, pid_t process) {
  for (auto _ : state) std::this_thread::sleep_for(std::chrono::seconds(2));
  if (const auto figures = figuresOf(process)) tell(state, *figures);
}

void Footprint(benchmark::State& state) {
  const HelperService helper(1);
  auto app = helper.connect();
  if (!app || HelperService::answer(*app, korvel::operation::setChargeLimit).empty()) {
    return state.SkipWithError("no helper");
  }
  footprint(state, HelperService::pid(*app));
}
BENCHMARK(Footprint)->Iterations(1);

void PeerFootprint(benchmark::State& state, const Peer& peer) {
  const PeerService service(peer);
  const auto connection = service.connect();
  if (!connection || !service.ask(*connection)) return state.SkipWithError("no answer");
  footprint(state, service.pid(*connection));
}
BENCHMARK_CAPTURE(PeerFootprint, upowerd, upower)->Iterations(1);
BENCHMARK_CAPTURE(PeerFootprint, powerProfiles, powerProfiles)->Iterations(1);

void EmptyFootprint(benchmark::State& state) {
  const FloorProgram empty({EMPTY_PROGRAM, threadsOfAService});
  footprint(state, empty.pid);
}
BENCHMARK(EmptyFootprint)->Iterations(1);

/// Three minutes in which nobody asks: a helper that does nothing, one that holds a limit, the
/// floor of that one, and the services, each of which watches a battery. All at the same time.
void ThreeQuietMinutes(benchmark::State& state) {
  const HelperService idle(1);
  const HelperService enforcing(1);
  const FloorProgram floor({TICK_FLOOR});
  const PeerService first(upower);
  const PeerService second(powerProfiles);
  auto idleClient = idle.connect();
  auto enforcingClient = enforcing.connect();
  const auto firstClient = first.connect();
  const auto secondClient = second.connect();
  if (!idleClient || !enforcingClient || !HelperService::ask(*idleClient) ||
      HelperService::answer(*enforcingClient, korvel::operation::setChargeLimit).empty() ||
      !first.ask(*firstClient) || !second.ask(*secondClient)) {
    return state.SkipWithError("no answer");
  }
  const std::array watched{std::pair{"idle", HelperService::pid(*idleClient)},
                           std::pair{"enforcing", HelperService::pid(*enforcingClient)},
                           std::pair{"floor", floor.pid},
                           std::pair{"upowerd", first.pid(*firstClient)},
                           std::pair{"powerProfiles", second.pid(*secondClient)}};
  std::this_thread::sleep_for(std::chrono::seconds(3));
  std::array<ProcessFigures, watched.size()> before;
  for (std::size_t each = 0; each < watched.size(); ++each)
    before[each] = figuresOf(watched[each].second).value_or(ProcessFigures());
  constexpr int minutes = 3;
  for (auto _ : state) std::this_thread::sleep_for(std::chrono::minutes(minutes));
  for (std::size_t each = 0; each < watched.size(); ++each) {
    const auto& [name, process] = watched[each];
    const auto after = figuresOf(process);
    if (!after) return state.SkipWithError("a service is gone");
    const ProcessFigures::Thread used = since(before[each], *after);
    state.counters[std::string(name) + "Wakeups"] = used.wakeups;
    state.counters[std::string(name) + "MillisecondsAMinute"] =
        1e3 * used.processorSeconds / minutes;
  }
}
BENCHMARK(ThreeQuietMinutes)->Iterations(1);

}  // namespace
}  // namespace benchmarks
