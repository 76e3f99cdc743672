#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Machine/Launchd.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Server/RealTimeDriver.h"
#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// launchd's hands: owns the service's listening socket, starts the helper when a client connects,
/// notices its end, and signals it. What is to be done, and when, Launchd decides.
///
/// An end with status 0 is taken as meant: the helper is started again by the next client. Any
/// other end is a crash, and the helper is started again by itself. Either way two starts are 10
/// virtual seconds apart.
///
/// Failure: a helper that cannot be started (no such program) counts as one that ended at once; the
/// reason is in the journal.
class JobRunner {
 public:
  struct Started {
    pid_t pid = 0;
    int machineDescriptor = -1;  ///< The machine's end of the connection to the helper.
  };
  using StartHandler = std::function<void(const Started&)>;
  using EndHandler = std::function<void(pid_t pid, const ProcessEnd& how)>;
  using ProblemHandler = std::function<void(const std::string&)>;

  JobRunner(asio::io_context& context, const RootDirectory& home, std::string helperProgram,
            bool verboseHelper, RealTimeDriver& keeper, Machine& clock);
  ~JobRunner();

  void setHandlers(StartHandler start, EndHandler end, ProblemHandler problem);
  /// Creates the service's endpoint. None: done; else what went wrong.
  std::optional<std::string> listen();

  /// The machine is up: the job is loaded, and starts at the first connection.
  void load();
  /// Orderly end: SIGTERM, later SIGKILL. `done` runs when no helper is left.
  void unload(std::function<void()> done);
  /// Nothing is done any more: the helper is killed as by `killNow`, and nobody who waits is told.
  void end();
  /// The machine loses power: the helper is killed and gone when this returns; the job is loaded
  /// anew by `load`.
  void killNow();

  /// The machine's time runs differently now: what is due is due at another real moment.
  void armDeadline();

  /// Starts the helper without waiting for a client, if none runs.
  void startByHand();
  /// Whether a crash starts the helper again by itself; so at first.
  void setRestartAfterCrash(bool restart) { restartAfterCrash = restart; }

  /// Sends a signal to the running helper. False: none runs.
  bool signal(int number);
  [[nodiscard]] std::optional<pid_t> helper() const { return running; }
  [[nodiscard]] std::uint64_t starts() const { return startCount; }

 private:
  void act(const std::vector<LaunchdAction>& actions);
  void start();
  std::optional<pid_t> spawn(int machineEnd);
  void reap();
  void ended(pid_t pid, int status);
  void watchService();

  RootDirectory root;
  std::string program;
  bool verbose;
  RealTimeDriver& timeDriver;
  Machine& machine;
  Launchd launchd;
  asio::signal_set children;
  asio::steady_timer deadline;
  asio::posix::stream_descriptor service;
  StartHandler startHandler;
  EndHandler endHandler;
  ProblemHandler problemHandler;
  std::vector<std::function<void()>> unloaded;  ///< Those who wait for the helper's end.
  std::optional<pid_t> running;
  std::uint64_t startCount = 0;
  bool watching = false;
  bool restartAfterCrash = true;
};

}  // namespace virtualmac
