#include "VirtualMac/Server/JobRunner.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "VirtualMac/Remote/FrameSocket.h"
#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

namespace {

/// Where a started helper finds what it was given.
constexpr int machineNumber = 3;
constexpr int serviceNumber = 4;
/// It is given nothing from here on.
constexpr int firstNotGiven = 5;
/// Descriptors are moved out of the way of those numbers first.
constexpr int firstFreeNumber = 10;

constexpr const char* serviceName = "com.korvel.app.helper";

ProcessEnd endOf(int status) {
  ProcessEnd how;
  if (WIFSIGNALED(status)) how.signal = WTERMSIG(status);
  if (WIFEXITED(status)) how.exitStatus = WEXITSTATUS(status);
  return how;
}

}  // namespace

JobRunner::JobRunner(asio::io_context& context, const RootDirectory& home,
                     std::string helperProgram, bool verboseHelper, RealTimeDriver& keeper,
                     Machine& served)
    : root(home),
      program(std::move(helperProgram)),
      verbose(verboseHelper),
      timeDriver(keeper),
      machine(served),
      children(context, SIGCHLD),
      service(context) {
  machine.launchd.setHands([this](LaunchdAction action) { act(action); });
  reap();
}

JobRunner::~JobRunner() {
  end();
  if (service.is_open()) ::unlink(root.service().c_str());
}

void JobRunner::setHandlers(StartHandler start, EndHandler end, ProblemHandler problem) {
  startHandler = std::move(start);
  endHandler = std::move(end);
  problemHandler = std::move(problem);
}

std::optional<std::string> JobRunner::listen() {
  auto listening = FrameSocket::listenAt(root.service());
  if (!listening) return FrameSocket::problemText(root.service(), listening.error());
  service.assign(listening->release());
  return std::nullopt;
}

void JobRunner::unload(std::function<void()> done) {
  if (!running) {
    machine.launchd.unload();
    return done();
  }
  unloaded.push_back(std::move(done));
  machine.launchd.unload();
}

void JobRunner::end() {
  unloaded.clear();
  machine.launchd.forget();
  killNow();
}

void JobRunner::killNow() {
  if (!running) return;
  ::kill(*running, SIGKILL);
  int status = 0;
  while (::waitpid(*running, &status, 0) < 0 && errno == EINTR) {
  }
  ended(*running, status);
}

bool JobRunner::signal(int number) { return running && ::kill(*running, number) == 0; }

void JobRunner::act(LaunchdAction action) {
  switch (action) {
    case LaunchdAction::Start:
      if (!start()) machine.launchd.exited(false);
      break;
    case LaunchdAction::Terminate:
      if (running) machine.tellSignal(*running, SIGTERM);
      signal(SIGTERM);
      break;
    case LaunchdAction::Kill:
      signal(SIGKILL);
      break;
  }
}

bool JobRunner::start() {
  std::array<int, 2> ends{};
  if (!hostsystem::unixSocketPair(ends)) {
    problemHandler(std::string("no connection to a helper can be made: ") +
                   std::system_category().message(errno));
    return false;
  }
  const std::optional<pid_t> pid = spawn(ends[1]);
  ::close(ends[1]);
  if (!pid) {
    ::close(ends[0]);
    return false;
  }
  running = pid;
  ++startCount;
  startHandler({*pid, ends[0]});
  return true;
}

std::optional<pid_t> JobRunner::spawn(int machineEnd) {
  const int machineCopy = ::fcntl(machineEnd, F_DUPFD_CLOEXEC, firstFreeNumber);
  const int serviceCopy = ::fcntl(service.native_handle(), F_DUPFD_CLOEXEC, firstFreeNumber);
  posix_spawn_file_actions_t files;
  ::posix_spawn_file_actions_init(&files);
  ::posix_spawn_file_actions_adddup2(&files, machineCopy, machineNumber);
  ::posix_spawn_file_actions_adddup2(&files, serviceCopy, serviceNumber);
  ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, root.helperErrors().c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
  const short closing = hostsystem::closeFromAtSpawn(files, firstNotGiven);
  // A daemon's signals, not those of the machine's terminal.
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  ::posix_spawnattr_setsigmask(&attributes, &none);
  ::posix_spawnattr_setsigdefault(&attributes, &all);
  ::posix_spawnattr_setpgroup(&attributes, 0);
  ::posix_spawnattr_setflags(
      &attributes, static_cast<short>(closing | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                      POSIX_SPAWN_SETPGROUP));
  std::vector<std::string> words{program,
                                 "--machine-descriptor",
                                 std::to_string(machineNumber),
                                 "--service-descriptor",
                                 std::to_string(serviceNumber),
                                 "--service",
                                 serviceName,
                                 "--disk",
                                 root.disk()};
  if (verbose) words.emplace_back("--verbose");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t pid = 0;
  const int error = ::posix_spawn(&pid, program.c_str(), &files, &attributes, arguments.data(),
                                  hostsystem::environment());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&files);
  ::close(machineCopy);
  ::close(serviceCopy);
  if (error == 0) return pid;
  problemHandler(program + " cannot be started: " + std::system_category().message(error));
  return std::nullopt;
}

void JobRunner::reap() {
  children.async_wait([this](const std::error_code& cancelled, int) {
    if (cancelled) return;
    reap();
    int status = 0;
    for (pid_t pid = ::waitpid(-1, &status, WNOHANG); pid > 0;
         pid = ::waitpid(-1, &status, WNOHANG)) {
      if (running && pid == *running) {
        timeDriver.catchUp();
        ended(pid, status);
        timeDriver.settle();
      }
    }
  });
}

void JobRunner::ended(pid_t pid, int status) {
  running.reset();
  const ProcessEnd how = endOf(status);
  endHandler(pid, how);
  machine.launchd.exited(how.exitStatus != 0);
  const auto waiting = std::exchange(unloaded, {});
  for (const std::function<void()>& done : waiting) done();
}

void JobRunner::watchService() {
  if (watching || running || !machine.launchd.isLoaded() || !service.is_open() ||
      machine.launchd.deadline())
    return;
  watching = true;
  service.async_wait(asio::posix::stream_descriptor::wait_read,
                     [this](const std::error_code& cancelled) {
                       watching = false;
                       if (cancelled) return;
                       timeDriver.catchUp();
                       machine.launchd.demand();
                       timeDriver.settle();
                     });
}

}  // namespace virtualmac
