#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Date.h"
#include "Base/PropertyValue.h"
#include "VirtualMac/Machine/Battery.h"
#include "VirtualMac/Machine/CodeSignatures.h"
#include "VirtualMac/Machine/ConnectionBreak.h"
#include "VirtualMac/Machine/Disk.h"
#include "VirtualMac/Machine/Enclosure.h"
#include "VirtualMac/Machine/HelperProcess.h"
#include "VirtualMac/Machine/Launchd.h"
#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Machine/PowerManagement.h"
#include "VirtualMac/Machine/PowerSourceList.h"
#include "VirtualMac/Machine/PowerUI.h"
#include "VirtualMac/Machine/Profile.h"
#include "VirtualMac/Machine/Registry.h"
#include "VirtualMac/Machine/SMC.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

/// How a process ended, for the journal.
struct ProcessEnd {
  std::optional<int> exitStatus;
  std::optional<int> signal;
};

/// A whole Mac as a plain model: no threads, no real time, no I/O. Callers serialise.
///
/// A deed of a person, the hardware or a helper takes effect at once on the part concerned
/// (`mac.lid.close()`, `process.smc.callStruct(…)`). Its consequences elsewhere (sleep, a new
/// charge rate) follow when the machine settles, in `advance`, also by 0; while one is due,
/// `nextEvent()` is 0. So power messages are never sent from inside a helper's call.
///
/// Journals `proc  helper 412 started`, `proc  helper 412 exited 0`, `proc  helper 412 killed by
/// signal 9`, `mac   reboot`, `mac   power lost`, `mac   battery empty, power lost`, `mac   powered
/// on`, and every text passed to `tell`.
///
/// Fault model, beside those of the parts. Power can be lost at any moment, which ends every
/// process and drops what the disk had not synced; a battery that runs empty without the adapter
/// does the same by itself. A reboot ends every process and forgets SleepDisabled. SMC values, the
/// native limit, lid, adapter and battery survive both.
class Machine {
 public:
  /// `journal`'s clock is best made from totalSeconds().
  Machine(Profile kind, Journal& journal, std::uint64_t seed = 1);
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  ~Machine();

 private:
  Profile profileUsed;
  MachineContext context;

 public:
  SMC smc;
  Adapter adapter;
  Lid lid;
  Battery battery;
  Registry registry;
  PowerSourceList powerSources;
  PowerManagement power;
  PowerUI powerUI;
  CodeSignatures signatures;
  Disk disk;
  Launchd launchd;  ///< Loads its job whenever the machine has come up again.

  [[nodiscard]] const Profile& profile() const { return profileUsed; }

  /// Lets virtual time pass; what falls due on the way happens in order, at its own time.
  void advance(double seconds) { advanceNanoseconds(fromSeconds(seconds)); }
  void advanceNanoseconds(Nanoseconds duration);
  /// Until the machine does something by itself that others can see (battery percent step,
  /// assertion time-out, idle sleep, acknowledgement time-out); none: nothing ahead.
  [[nodiscard]] std::optional<double> nextEvent() const;
  [[nodiscard]] std::optional<Nanoseconds> nextEventNanoseconds() const;

  /// Virtual seconds since the machine was made; the journal's time.
  [[nodiscard]] double totalSeconds() const { return toSeconds(context.total); }
  [[nodiscard]] Nanoseconds totalNanoseconds() const { return context.total; }
  /// Virtual time awake: the clock of timers. Goes on over a reboot.
  [[nodiscard]] Nanoseconds uptimeNanoseconds() const { return power.uptime(); }
  [[nodiscard]] double uptimeSeconds() const { return toSeconds(power.uptime()); }
  [[nodiscard]] korvel::Date wallClock() const;
  void setWallClock(korvel::Date now);

  /// Journals a deed that concerns the whole machine, so that none of its parts journals it.
  void tell(std::string whatWasDone);
  /// Journals `proc  signal 15 to helper 412`.
  void tellSignal(std::int32_t pid, int number);

  /// The processes of the helper; several at once are possible. `pid` must be free.
  std::shared_ptr<HelperProcess> startProcess(std::int32_t pid);
  /// Drops what dies with the process. Does nothing when it is unknown or has ended.
  void endProcess(std::int32_t pid, ProcessEnd how = {});
  [[nodiscard]] std::shared_ptr<HelperProcess> process(std::int32_t pid) const;

  /// Ends every process. The caller unloads launchd's job first, if helpers are to end in order.
  void reboot();
  void powerLoss();
  /// True after the battery ran empty, until the adapter brings the machine up again.
  [[nodiscard]] bool isOff() const { return off; }
  /// Called by reboot, powerLoss and an empty battery, before processes are ended, so that the
  /// owner of the helper can stop it.
  void setDownHandler(std::function<void(std::string_view cause)> handler);

  /// Seconds that a call takes, for the gate.
  [[nodiscard]] double latencySeconds(SeamCall call) const;
  void setLatencySeconds(SeamCall call, double seconds);
  [[nodiscard]] bool givingBackTakesTime() const;  ///< Some call that gives back has a latency.

  /// The main bundle's information; at first it holds "CFBundleShortVersionString" alone.
  korvel::PropertyValue::Dictionary bundleInformation;
  /// Puts another version in the helper's place; one that runs goes on as it is.
  void installHelper(const std::string& version);
  std::optional<std::string> bundleExecutablePath{std::string(helperProgramPath)};
  /// Every new connection of the helper's service breaks at this moment.
  std::optional<ConnectionBreak> connectionsBreak;
  /// Lines of the faults that are on; kept by setFault.
  std::vector<std::string> activeFaultLines;

 private:
  void settle();
  void settleOnce();
  void goDown(const Effect& cause, bool orderly);
  [[nodiscard]] BatteryConditions batteryConditions() const;
  [[nodiscard]] Nanoseconds untilNext() const;
  void pass(Nanoseconds duration);

  std::uint64_t settledRevision = 0;
  Nanoseconds nextAt = 0;  ///< Total time of the next event, as of the settled revision.
  double wallAtStart;
  std::map<std::int32_t, std::shared_ptr<HelperProcess>> processes;
  std::function<void(std::string_view)> downHandler;
  std::array<double, seamCallCount> latencies{};
  bool off = false;
};

}  // namespace virtualmac
