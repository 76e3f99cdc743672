// These benchmarks run the helper as a process. A request's round trip stands beside a bare
// ping-pong of two processes, the start to the first answer and the memory beside an empty
// program's.

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "Operations.h"
#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Tools/AppConnection.h"

namespace virtualmac {
namespace {

constexpr double timeoutSeconds = 5;

/// Reads one of a process's memory figures, in KiB; 0 when it has none.
double memoryKiB(pid_t pid, const std::string& name) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ':'))
      return std::strtod(line.substr(name.size() + 1).c_str(), nullptr);
  }
  return 0;
}

/// A virtual Mac that lives as long as the benchmark.
class MachineProcess {
 public:
  /// The machine runs `speed` times as fast as real time.
  explicit MachineProcess(int speed) {
    std::array<char, 40> name{"/tmp/korvel-benchmark-XXXXXX"};
    root.path = mkdtemp(name.data());
    up = run("up --speed " + std::to_string(speed));
  }
  ~MachineProcess() {
    run("down");
    std::error_code ignored;
    std::filesystem::remove_all(root.path, ignored);
  }
  MachineProcess(const MachineProcess&) = delete;
  MachineProcess& operator=(const MachineProcess&) = delete;

  bool run(const std::string& command) const {
    const std::string line =
        VIRTUAL_MAC_PROGRAM " --root " + root.path + " " + command + " >/dev/null";
    return std::system(line.c_str()) == 0;
  }
  [[nodiscard]] std::optional<AppConnection> connect() const {
    auto opened = AppConnection::open(root, "app");
    if (!opened) return std::nullopt;
    return *std::move(opened);
  }

  RootDirectory root;
  bool up = false;
};

/// Returns the values of one reply; empty when none came.
std::vector<XPCValue> ask(AppConnection& app, const korvel::Operation& operation) {
  const auto reply = app.call(operation, 0, timeoutSeconds);
  return reply ? *reply : std::vector<XPCValue>();
}

void RoundTrip(benchmark::State& state, const korvel::Operation& operation) {
  const MachineProcess machine(1);
  std::optional<AppConnection> app = machine.connect();
  if (!app || ask(*app, operation).empty()) {
    state.SkipWithError("no helper");
    return;
  }
  for (auto _ : state) {
    if (ask(*app, operation).empty()) state.SkipWithError("no reply");
  }
}
BENCHMARK_CAPTURE(RoundTrip, ping, korvel::operation::ping)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(RoundTrip, getState, korvel::operation::getState)
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

/// The floor exchanges as many bytes between two processes, with nothing in between.
void BarePingPong(benchmark::State& state) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()) != 0) {
    state.SkipWithError("no sockets");
    return;
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

/// Measures from the connection to a service that is not running to its first answer.
void StartToFirstAnswer(benchmark::State& state) {
  // At this speed launchd's ten seconds between two starts pass quickly.
  const MachineProcess machine(1000);
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    std::optional<AppConnection> app = machine.connect();
    if (!app || ask(*app, korvel::operation::ping).empty()) {
      state.SkipWithError("no answer");
      return;
    }
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    ask(*app, korvel::operation::quit);
    app.reset();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}
BENCHMARK(StartToFirstAnswer)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);

/// Starts an empty program and waits for its word; ends it with the object.
class EmptyProgram {
 public:
  EmptyProgram() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) return;
    pid = fork();
    if (pid == 0) {
      dup2(ends[1], STDOUT_FILENO);
      execl(EMPTY_PROGRAM, EMPTY_PROGRAM, nullptr);
      _exit(127);
    }
    close(ends[1]);
    char said = 0;
    spoke = read(ends[0], &said, 1) == 1;
    close(ends[0]);
  }
  ~EmptyProgram() {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  EmptyProgram(const EmptyProgram&) = delete;
  EmptyProgram& operator=(const EmptyProgram&) = delete;

  pid_t pid = 0;
  bool spoke = false;
};

void EmptyProgramToFirstByte(benchmark::State& state) {
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    const EmptyProgram program;
    if (!program.spoke) state.SkipWithError("the empty program did not start");
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
  }
}
BENCHMARK(EmptyProgramToFirstByte)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);

/// Reports memory as counters, in KiB, of a helper that holds a limit and of an empty program.
/// Resident includes pages of shared libraries; private has only pages that the process wrote.
void ResidentMemory(benchmark::State& state) {
  const MachineProcess machine(60);
  std::optional<AppConnection> app = machine.connect();
  const EmptyProgram empty;
  if (!app || !empty.spoke) {
    state.SkipWithError("no helper");
    return;
  }
  const auto limited = app->call(korvel::operation::setChargeLimit, 80, timeoutSeconds);
  const std::vector<XPCValue> answer = ask(*app, korvel::operation::ping);
  if (!limited || answer.empty()) {
    state.SkipWithError("no answer");
    return;
  }
  if (!app->stayConnected(2)) {
    state.SkipWithError("the helper went away");
    return;
  }
  const auto pid = static_cast<pid_t>(*std::get<korvel::PropertyValue>(answer.front()).integer());
  for (auto _ : state) benchmark::DoNotOptimize(memoryKiB(pid, "VmRSS"));
  state.counters["helperKiB"] = memoryKiB(pid, "VmRSS");
  state.counters["emptyKiB"] = memoryKiB(empty.pid, "VmRSS");
  state.counters["helperPrivateKiB"] = memoryKiB(pid, "RssAnon");
  state.counters["emptyPrivateKiB"] = memoryKiB(empty.pid, "RssAnon");
}
BENCHMARK(ResidentMemory)->Iterations(1);

}  // namespace
}  // namespace virtualmac
