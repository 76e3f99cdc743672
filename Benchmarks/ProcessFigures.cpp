#include "Benchmarks/ProcessFigures.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace benchmarks {

namespace {

/// The number behind a name in a status file; 0 when the file has none.
double numberIn(const std::filesystem::path& file, const std::string& name) {
  std::ifstream status(file);
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name + ':')) return std::stod(line.substr(name.size() + 1));
  }
  return 0;
}

}  // namespace

std::optional<ProcessFigures> figuresOf(pid_t process) {
  const std::filesystem::path directory = "/proc/" + std::to_string(process);
  ProcessFigures figures{.residentKiB = numberIn(directory / "status", "VmRSS"),
                         .privateKiB = numberIn(directory / "status", "RssAnon"),
                         .threads = numberIn(directory / "status", "Threads")};
  if (figures.threads == 0) return std::nullopt;
  std::error_code gone;
  figures.descriptors =
      static_cast<double>(std::distance(std::filesystem::directory_iterator(directory / "fd", gone),
                                        std::filesystem::directory_iterator()));
  for (const auto& thread : std::filesystem::directory_iterator(directory / "task", gone)) {
    double nanoseconds = 0;
    std::ifstream(thread.path() / "schedstat") >> nanoseconds;
    figures.byThread[thread.path().filename()] = {
        .wakeups = numberIn(thread.path() / "status", "voluntary_ctxt_switches"),
        .processorSeconds = nanoseconds / 1e9};
  }
  return figures;
}

ProcessFigures::Thread since(const ProcessFigures& before, const ProcessFigures& now) {
  ProcessFigures::Thread all;
  for (const auto& [name, thread] : now.byThread) {
    const auto found = before.byThread.find(name);
    const auto begun = found == before.byThread.end() ? ProcessFigures::Thread() : found->second;
    all.wakeups += thread.wakeups - begun.wakeups;
    all.processorSeconds += thread.processorSeconds - begun.processorSeconds;
  }
  return all;
}

std::optional<double> secondsToEnd(pid_t process) {
  const int watched = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
  if (watched < 0) return std::nullopt;
  const auto begin = std::chrono::steady_clock::now();
  ::kill(process, SIGTERM);
  pollfd end{.fd = watched, .events = POLLIN, .revents = 0};
  const bool ended = ::poll(&end, 1, 10'000) > 0;
  const auto lasted = std::chrono::steady_clock::now() - begin;
  ::close(watched);
  if (!ended) return std::nullopt;
  return std::chrono::duration<double>(lasted).count();
}

}  // namespace benchmarks
