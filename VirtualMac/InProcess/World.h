#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Platform.h"
#include "Platform/UnifiedLog.h"
#include "VirtualMac/InProcess/AppClient.h"
#include "VirtualMac/Schedule/FaultTable.h"
#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

class Launchd;
class Machine;
class ScheduleObservers;
class Scheduler;

enum class Scheduling : std::uint8_t {
  Fifo,   ///< The first to become runnable runs first.
  Seeded  ///< The seed chooses, and also interrupts at posts, locks and platform calls.
};

struct WorldOptions {
  std::string profile = "newer-keys";  ///< A machine profile's name.
  std::uint64_t seed = 1;
  Scheduling scheduling = Scheduling::Fifo;
  std::optional<std::string> helperVersion = "2.0.0";  ///< The bundle's short version string.
  bool keepJournal = true;                             ///< False: hashed and listened to only.
  /// Runs on a helper's main thread in place of the built helper.
  std::function<int(korvel::Platform&)> entry = {};
};

/// One line of the helper's log.
struct LogLine {
  double time = 0;
  std::string category;
  korvel::LogLevel level{};
  std::string text;
  friend bool operator==(const LogLine&, const LogLine&) = default;
};

/// A whole virtual Mac with its helper and its applications, in virtual time: the test bench.
///
/// The test's thread drives. Nothing moves but inside run…, await, and calls that the test makes
/// into the helper itself; when one of these returns, nothing else is running. Every thread of the
/// helper is a real thread, and exactly one runs at a time.
///
/// launchd starts the helper for the first client, at once, and does nothing else by itself: tests
/// decide when a helper runs. A job as on a Mac is `launchd().job = LaunchdJob()`, then `load()`.
///
/// A deadlock and a dropped reply do not hang and do not trap: run… throws a std::runtime_error
/// that names who waits for whom; violations() lists what the transport noticed.
class World {
 public:
  explicit World(WorldOptions options = {});
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  [[nodiscard]] Machine& machine();
  [[nodiscard]] Journal& journal();
  [[nodiscard]] FaultTable& faults();
  [[nodiscard]] Scheduler& scheduler();
  [[nodiscard]] ScheduleObservers& observers();
  [[nodiscard]] Launchd& launchd();

  // The helper as launchd runs it
  /// Starts the built helper (runHelper) on a main thread of its own. It runs when the world does.
  void startHelper();
  /// kill -9: every thread unwinds without another effect, now.
  void killHelper();
  /// kill -9 and everything that was not flushed is lost; the machine is up again afterwards.
  void powerLoss();
  /// Sends a signal. Without a source that hears it or a disposition that ignores it, it kills.
  void sendSignal(int number);
  [[nodiscard]] bool helperRunning() const;
  /// The status of the last helper that ended by itself; none while it runs or if it was killed.
  [[nodiscard]] std::optional<int> exitStatus() const;
  [[nodiscard]] std::optional<std::int32_t> helperPid() const;

  // A helper that the test builds by hand
  /// A process whose main thread only serves its loop: the test makes its own core from platform().
  /// Its objects may be built and called on the test's thread, or through onMain and onThread.
  korvel::Platform& startBareHelper();
  /// The seam of the present (else the last) helper process.
  [[nodiscard]] korvel::Platform& platform();
  /// Runs `body` on the process's main thread and returns when it is done or the process is dead.
  void onMain(std::function<void()> body);
  /// Starts `body` on a further thread of the process; it runs when the world does.
  void onThread(std::string name, std::function<void()> body);

  // Clients
  /// Connects as a program with one of the machine's signing identities.
  std::unique_ptr<AppClient> connectApp(std::string_view identity = "app");

  // Time
  [[nodiscard]] double now() const;     ///< Virtual seconds since the machine's start.
  [[nodiscard]] double uptime() const;  ///< Those that it was awake.
  /// Runs everything that is due until `seconds` from now, that moment included.
  void runFor(double seconds);
  /// Runs what can run without time passing.
  void runUntilIdle();
  /// Runs until `reached` holds, checked after each piece of work; false: it did not in time.
  bool runUntil(const std::function<bool()>& reached, double limitSeconds);

  // Observation
  [[nodiscard]] const CallCounts& callCounts() const;
  /// The log lines so far, all or those of one category.
  [[nodiscard]] std::vector<LogLine> logLines(std::string_view category = {}) const;
  /// How many lines have exactly this text.
  [[nodiscard]] std::size_t logCount(std::string_view text) const;
  [[nodiscard]] bool logged(std::string_view category, korvel::LogLevel level,
                            std::string_view text) const;
  /// Things the helper did that no correct program does: a dropped reply, a reply of a class that
  /// the interface does not allow, a requirement that does not parse.
  [[nodiscard]] const std::vector<std::string>& violations() const;

 private:
  friend class AppClient;
  struct Parts;
  std::unique_ptr<Parts> parts;
};

}  // namespace virtualmac
