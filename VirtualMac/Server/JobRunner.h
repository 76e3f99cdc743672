#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/signal_set.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Server/RealTimeDriver.h"
#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// The hands of the machine's launchd: owns the service's listening socket, tells launchd of
/// waiting clients and of the helper's end, and starts and signals the helper when launchd says so.
///
/// Failure: a helper that cannot be started (no such program) counts as one that ended at once with
/// status 0; the reason is in the journal.
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
            bool verboseHelper, RealTimeDriver& keeper, Machine& served);
  ~JobRunner();

  void setHandlers(StartHandler start, EndHandler end, ProblemHandler problem);
  /// Creates the service's endpoint. None: done; else what went wrong.
  std::optional<std::string> listen();

  /// Orderly end: SIGTERM, later SIGKILL. `done` runs when no helper is left.
  void unload(std::function<void()> done);
  /// Nothing is done any more: the helper is killed as by `killNow`, and nobody who waits is told.
  void end();
  /// The machine goes down: the helper is killed and gone when this returns.
  void killNow();

  /// The machine has settled: waits for a client if launchd wants to hear of one.
  void watchService();

  /// Sends a signal to the running helper. False: none runs.
  bool signal(int number);
  [[nodiscard]] std::optional<pid_t> helper() const { return running; }
  [[nodiscard]] std::uint64_t starts() const { return startCount; }

 private:
  void act(LaunchdAction action);
  bool start();
  std::optional<pid_t> spawn(int machineEnd);
  void reap();
  void ended(pid_t pid, int status);

  RootDirectory root;
  std::string program;
  bool verbose;
  RealTimeDriver& timeDriver;
  Machine& machine;
  asio::signal_set children;
  asio::posix::stream_descriptor service;
  StartHandler startHandler;
  EndHandler endHandler;
  ProblemHandler problemHandler;
  std::vector<std::function<void()>> unloaded;  ///< Those who wait for the helper's end.
  std::optional<pid_t> running;
  std::uint64_t startCount = 0;
  bool watching = false;
};

}  // namespace virtualmac
