#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/MachineContext.h"

namespace virtualmac {

/// The helper's job as launchd would be told of it.
struct LaunchdJob {
  std::string label = "com.korvel.app.helper";
  bool keepAlive = true;           ///< Starts again after every end; otherwise only on demand.
  double throttleSeconds = 10;     ///< At least this long from one start to the next.
  double exitTimeoutSeconds = 20;  ///< From SIGTERM to SIGKILL.
};

/// What launchd wants done. Time is the caller's; launchd only keeps deadlines.
enum class LaunchdAction : std::uint8_t { Start, Terminate, Kill };

/// When the helper is started, again and for the last time: pure decisions, events in, actions out.
/// The caller starts and signals processes, and asks again at the deadline. Connections that come
/// while no helper runs wait for it: the caller keeps them.
///
/// Fault model. The helper may end at any moment with any status; it may ignore SIGTERM; a demand
/// may come while it is throttled, stopping, or the job is unloaded. Not modelled: a start that
/// fails (report it as an immediate end).
class Launchd {
 public:
  explicit Launchd(LaunchdJob described = {}) : job(std::move(described)) {}

  /// The job is loaded (boot, or by hand): started at the first demand.
  void load();
  /// A client looked the service up.
  std::vector<LaunchdAction> demand(Nanoseconds now);
  /// The helper ended, in whatever way.
  std::vector<LaunchdAction> exited(Nanoseconds now);
  /// The job is to end (shutdown, unload): SIGTERM, and SIGKILL when it takes too long.
  std::vector<LaunchdAction> unload(Nanoseconds now);
  /// The deadline has come.
  std::vector<LaunchdAction> elapsed(Nanoseconds now);

  /// When `elapsed` wants to be called; none: nothing is due.
  [[nodiscard]] std::optional<Nanoseconds> deadline() const { return due; }
  [[nodiscard]] bool isRunning() const { return running; }
  [[nodiscard]] bool isLoaded() const { return loaded; }
  [[nodiscard]] std::uint64_t starts() const { return startCount; }

 private:
  std::vector<LaunchdAction> startOrWait(Nanoseconds now);

  LaunchdJob job;
  bool loaded = false;
  bool running = false;
  bool stopping = false;
  bool wanted = false;
  std::uint64_t startCount = 0;
  std::optional<Nanoseconds> lastStart;
  std::optional<Nanoseconds> due;
};

}  // namespace virtualmac
