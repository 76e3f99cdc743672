// One helper process with many clients, and with many requests of one client: how long an answer
// takes, and what the helper's and the machine's processes hold meanwhile.

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Benchmarks/HelperService.h"
#include "Benchmarks/Latencies.h"
#include "Benchmarks/ProcessFigures.h"

namespace benchmarks {
namespace {

/// The virtual Mac and its helper inherit it. A client takes a descriptor of each of both, and two
/// of this process. False: the system allows fewer.
bool allowDescriptors(rlim_t needed) {
  rlimit allowed{};
  if (getrlimit(RLIMIT_NOFILE, &allowed) != 0) return false;
  if (allowed.rlim_cur != RLIM_INFINITY && allowed.rlim_cur < needed) allowed.rlim_cur = needed;
  return setrlimit(RLIMIT_NOFILE, &allowed) == 0;
}

void tell(benchmark::State& state, const std::string& whose, const ProcessFigures& figures) {
  state.counters[whose + "ResidentKiB"] = figures.residentKiB;
  state.counters[whose + "PrivateKiB"] = figures.privateKiB;
  state.counters[whose + "Descriptors"] = figures.descriptors;
  state.counters[whose + "Threads"] = figures.threads;
}

/// Of the helper and of its machine, whose numbers are looked up once.
class Watched {
 public:
  explicit Watched(HelperService::Connection& app)
      : helper(HelperService::pid(app)), machine(HelperService::machinePid(app)) {}

  /// False: one of them is gone.
  bool tellOf(benchmark::State& state, const std::string& when = "") const {
    const auto ofHelper = figuresOf(helper);
    const auto ofMachine = figuresOf(machine);
    if (!ofHelper || !ofMachine) return false;
    tell(state, "helper" + when, *ofHelper);
    tell(state, "machine" + when, *ofMachine);
    return true;
  }

 private:
  pid_t helper;
  pid_t machine;
};

// ---- clients

bool connectAll(const HelperService& helper, std::size_t count,
                std::vector<HelperService::Connection>& clients) {
  for (std::size_t each = 0; each < count; ++each) {
    auto client = helper.connect();
    if (!client || !HelperService::ask(*client)) return false;
    clients.push_back(*std::move(client));
  }
  return true;
}

/// All stay connected. First one asks again and again, then each by turns.
void Clients(benchmark::State& state) {
  constexpr std::size_t questions = 4096;
  const auto count = static_cast<std::size_t>(state.range(0));
  if (!allowDescriptors(2 * count + 200)) return state.SkipWithError("too few descriptors");
  const HelperService helper(1);
  std::vector<HelperService::Connection> clients;
  if (!connectAll(helper, count, clients)) {
    return state.SkipWithError(
        ("no answer for client " + std::to_string(clients.size() + 1)).c_str());
  }
  Latencies one;
  Latencies byTurns;
  bool answered = true;
  for (auto _ : state) {
    for (std::size_t each = 0; each < questions; ++each)
      answered = one.time([&] { return HelperService::ask(clients.front()); }) && answered;
    for (std::size_t each = 0; each < questions; ++each)
      answered =
          byTurns.time([&] { return HelperService::ask(clients[each % count]); }) && answered;
  }
  if (!answered || !Watched(clients.front()).tellOf(state)) return state.SkipWithError("no answer");
  state.counters["oneHalf"] = one.within(0.5);
  state.counters["oneMost"] = one.within(0.99);
  state.counters["byTurnsHalf"] = byTurns.within(0.5);
  state.counters["byTurnsMost"] = byTurns.within(0.99);
}
BENCHMARK(Clients)->Arg(1)->Arg(4)->Arg(16)->Arg(64)->Arg(256)->Arg(1024)->Iterations(1)->Unit(
    benchmark::kMillisecond);

// ---- requests

/// A million requests of one client, by turns two kinds.
void MillionRequests(benchmark::State& state) {
  constexpr int early = 100'000;
  constexpr int all = 1'000'000;
  const HelperService helper(1);
  auto app = helper.connect();
  if (!app || !HelperService::ask(*app)) return state.SkipWithError("no helper");
  const Watched watched(*app);
  const auto tellAll = [&](const std::string& when) {
    std::error_code none;
    const auto size = std::filesystem::file_size(helper.folder().journal(), none);
    state.counters["journalBytes" + when] = none ? 0 : static_cast<double>(size);
    return watched.tellOf(state, when);
  };
  for (auto _ : state) {
    for (int each = 1; each <= all; ++each) {
      const auto& operation = each % 2 == 0 ? korvel::operation::ping : korvel::operation::getState;
      if (HelperService::answer(*app, operation).empty()) return state.SkipWithError("no answer");
      if (each == early && !tellAll("Early")) return state.SkipWithError("it is gone");
    }
  }
  if (!tellAll("")) return state.SkipWithError("it is gone");
}
BENCHMARK(MillionRequests)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
}  // namespace benchmarks
