#include "VirtualMac/Tools/MachineDaemon.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <asio/signal_set.hpp>
#include <cerrno>
#include <csignal>

#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Server/ControlServer.h"

namespace virtualmac {

std::string alreadyUpText(const RootDirectory& root) {
  return "a virtual Mac is already up in " + root.path + root.origin();
}

namespace {

/// Held for as long as a machine is up: two in one root directory would share a disk.
class RootLock {
 public:
  explicit RootLock(const RootDirectory& root)
      : descriptor(::open((root.path + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {}
  ~RootLock() {
    if (descriptor >= 0) ::close(descriptor);
  }
  RootLock(const RootLock&) = delete;
  RootLock& operator=(const RootLock&) = delete;
  /// None: held now; else why not.
  [[nodiscard]] std::optional<std::string> take(const RootDirectory& root) const {
    if (descriptor < 0)
      return root.path + ": " + std::system_category().message(reason) + root.origin();
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) return alreadyUpText(root);
    return std::nullopt;
  }

 private:
  int descriptor;
  int reason = errno;  ///< Why it could not be opened, if it could not.
};

/// Closes the descriptors of the starting process, but for `kept` and the standard ones: each may
/// be a pipe or a lock that somebody waits for.
void keepOnly(int& kept) {
  constexpr int place = STDERR_FILENO + 1;
  if (kept != place) ::dup2(kept, place);
  kept = place;
  hostsystem::closeOnExec(kept);
  hostsystem::closeFrom(place + 1);
}

void detach(const RootDirectory& root) {
  ::setsid();
  const int nothing = ::open("/dev/null", O_RDWR);
  if (nothing < 0) return;
  const int errors =
      ::open(root.machineErrors().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(nothing, STDOUT_FILENO);
  ::dup2(errors >= 0 ? errors : nothing, STDERR_FILENO);
  if (nothing > STDERR_FILENO) ::close(nothing);
  if (errors > STDERR_FILENO) ::close(errors);
}

void tell(int descriptor, const std::string& text) {
  const std::string line = text + '\n';
  // An error means that the reader has gone, so nobody misses the line.
  if (::write(descriptor, line.data(), line.size()) < 0) return;
}

/// One line from the machine's process: empty when it is up.
std::string hear(int descriptor) {
  std::string text;
  std::array<char, 512> chunk{};
  for (;;) {
    const ssize_t got = ::read(descriptor, chunk.data(), chunk.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return text.empty() ? "the machine's process ended before it was up" : text;
    text.append(chunk.data(), static_cast<std::size_t>(got));
    if (text.ends_with('\n')) return text.substr(0, text.size() - 1);
  }
}

}  // namespace

int runMachine(const MachineOptions& options,
               const std::function<void(const std::string& problem)>& ready) {
  // Goes last, and the connections with it: a client that sees its end finds the machine gone.
  asio::io_context context;
  const RootLock lock(options.root);
  if (const auto problem = lock.take(options.root)) {
    ready(*problem);
    return 1;
  }
  ::signal(SIGPIPE, SIG_IGN);
  MachineServer server(context, options);
  ControlServer control(server, [&context] { context.stop(); });
  std::optional<std::string> trouble = server.start();
  if (!trouble) trouble = control.listen();
  if (trouble) {
    ready(*trouble);
    return 1;
  }
  asio::signal_set stop(context, SIGTERM, SIGINT);
  stop.async_wait([&](const std::error_code& cancelled, int) {
    if (!cancelled) server.shutDown([&context] { context.stop(); });
  });
  server.boot();
  ready("");
  context.run();
  return 0;
}

std::expected<pid_t, std::string> startMachine(const MachineOptions& options) {
  std::array<int, 2> ends{};
  if (!hostsystem::pipe(ends))
    return std::unexpected(std::string("no pipe: ") + std::system_category().message(errno));
  const pid_t child = ::fork();
  if (child < 0)
    return std::unexpected(std::string("no process: ") + std::system_category().message(errno));
  if (child == 0) {
    keepOnly(ends[1]);
    detach(options.root);
    const int status = runMachine(options, [&ends](const std::string& problem) {
      tell(ends[1], problem);
      ::close(ends[1]);
    });
    ::_exit(status);
  }
  ::close(ends[1]);
  const std::string problem = hear(ends[0]);
  ::close(ends[0]);
  if (problem.empty()) return child;
  ::waitpid(child, nullptr, 0);
  return std::unexpected(problem);
}

}  // namespace virtualmac
