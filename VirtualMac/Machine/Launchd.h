#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

#include "VirtualMac/Machine/MachineContext.h"

namespace virtualmac {

/// The helper's job; by default as the property lists in Packaging describe it.
struct LaunchdJob {
  bool startAtBoot = true;         ///< KeepAlive implies it.
  bool startOnDemand = true;       ///< MachServices: a client looked the service up.
  bool restartAfterCrash = true;   ///< KeepAlive without SuccessfulExit: any end but status 0.
  double throttleSeconds = 10;     ///< At least this long from one start to the next.
  double exitTimeoutSeconds = 20;  ///< From SIGTERM to SIGKILL.
};

enum class LaunchdAction : std::uint8_t { Start, Terminate, Kill };

/// When the helper is started, again and for the last time. launchd decides, in the machine's time;
/// its hands start and signal the process, and tell it the process's end.
///
/// Fault model. The helper may end at any moment with any status; it may ignore SIGTERM; a demand
/// may come while it is throttled, stopping, or the job is unloaded. A start that fails is not
/// modelled: the hands report an end with status 0, so that only the next demand tries again.
class Launchd {
 public:
  using Hands = std::function<void(LaunchdAction)>;

  explicit Launchd(MachineContext& shared) : context(shared) {}

  LaunchdJob job;
  void setHands(Hands doing) { hands = std::move(doing); }

  /// The machine is up, or the job is loaded by hand.
  void load();
  /// A client looked the service up. A demand that comes while no job is loaded is kept for it.
  void demand();
  /// Starts the helper now, job or throttle or not.
  void startByHand();
  /// The helper ended; a crash is any end but one with status 0.
  void exited(bool crashed);
  /// The job is to end (shutdown, unload): SIGTERM, and SIGKILL when it takes too long.
  void unload();
  /// The machine goes down: nothing is loaded or runs any more, and nothing is remembered.
  void forget();
  /// Does what is due.
  void settle();

  /// In total time; none: nothing is due.
  [[nodiscard]] std::optional<Nanoseconds> deadline() const { return due; }
  [[nodiscard]] Nanoseconds untilNextEvent() const;
  [[nodiscard]] bool isRunning() const { return running; }
  [[nodiscard]] bool isLoaded() const { return loaded; }

 private:
  void startOrWait();
  void waitUntil(Nanoseconds moment);
  void act(LaunchdAction action) const;

  MachineContext& context;
  Hands hands;
  bool loaded = false;
  bool running = false;
  bool stopping = false;
  bool wanted = false;
  std::optional<Nanoseconds> lastStart;
  std::optional<Nanoseconds> due;
};

}  // namespace virtualmac
