#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/PropertyValue.h"
#include "Platform/KernelTypes.h"
#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Machine/PowerTypes.h"

namespace virtualmac {

/// Power assertions, the SleepDisabled setting, and the way in and out of sleep. Journals:
///   power assertion 33001 created PreventUserIdleSystemSleep "name" (pid 412, 14400 s)
///   power assertion 33001 released, power assertion 33001 timed out
///   power assertion 33001 dropped with pid 412
///   power SleepDisabled = 1
///   power SleepDisabled = 1 refused (-536870207)
///   power SleepDisabled = 1 (by another program)
///   power SleepDisabled removed (by another program)
///   power sleep (idle) begins
///   power sleep (lid) held off by SleepDisabled
///   power sleep (idle) held off by assertion 33001
///   power sleep (lid) held off by display and adapter
///   power sleep (idle) taken back
///   power message 0xe0000280 to pid 412
///   power message acknowledged by pid 412
///   power message not acknowledged by pid 412
///   power asleep
///   power awake (lid opened)
///   mac   touched, mac   idle sleep after 10 min, mac   idle sleep off
///
/// Sleep, unless the battery is low, is held off by:
///   SleepDisabled                       every sleep
///   an assertion against idle sleep     idle sleep
///   an assertion against system sleep   idle and requested sleep, on adapter power only
///   an external display                 lid sleep, on adapter power only
/// Idle sleep asks first (can-sleep). Every sleep is announced (will-sleep), and waits up to 30 s
/// for the acknowledgement of each registered process, but for none that has timed out three times.
/// Due events happen when the machine settles, never inside a helper's call.
///
/// Fault model. Creating or releasing assertions and writing the setting can be refused with any
/// code (for the second assertion type separately); registration can fail; acknowledgements can be
/// late or never come. The setting does not survive a reboot. Not modelled: dark wakes, standby.
class PowerManagement {
 public:
  PowerManagement(MachineContext& shared, std::int64_t idleSleepMinutes);

  /// Assertions.
  korvel::KernReturn createAssertion(std::int32_t owner, const korvel::PropertyValue& properties,
                                     std::uint32_t& id);
  korvel::KernReturn releaseAssertion(std::uint32_t id);
  [[nodiscard]] const std::vector<Assertion>& assertions() const { return held; }

  /// The settings. `privileged`: the caller is root.
  korvel::KernReturn setSystemPowerSetting(std::string_view key, bool value, bool privileged);
  korvel::PropertyValue copySystemPowerSettings();
  [[nodiscard]] bool sleepDisabled() const { return sleepDisabledSetting.value_or(false); }
  /// Sets it as the user or another program does; none: as if never stored.
  void setSleepDisabledExternally(std::optional<bool> value);

  /// Sleep and wake. A request that is held off is journalled and forgotten; lid and idle sleep
  /// come back by themselves when what held them off ends.
  void requestSleep(SleepReason reason = SleepReason::Requested);
  void wake(std::string_view cause = "requested");  ///< A machine that is awake is touched.
  /// Somebody touched the machine: restarts the idle count, and takes back an idle sleep that is
  /// still being asked for.
  void userActivity();
  void setIdleSleepMinutes(std::int64_t minutes);  ///< 0: never.
  [[nodiscard]] std::int64_t idleSleepMinutes() const;
  [[nodiscard]] SleepPhase phase() const { return sleepPhase; }
  [[nodiscard]] bool isAsleep() const { return sleepPhase == SleepPhase::Asleep; }

  /// Faults.
  std::optional<korvel::KernReturn> assertionRefusal;
  std::optional<korvel::KernReturn> secondaryAssertionRefusal;  ///< "PreventSystemSleep" only.
  std::optional<korvel::KernReturn> assertionReleaseRefusal;
  std::optional<korvel::KernReturn> settingRefusal;
  std::optional<korvel::PropertyValue> settingsOverride;  ///< In place of the copied dictionary.
  bool registrationFails = false;
  double acknowledgementSeconds = 30;

  /// For RootDomainClient.
  using Deliver = std::function<void(const PowerMessage&)>;
  void addRegistration(std::int32_t pid, korvel::ObjectRef notifier, Deliver deliver);
  void removeRegistration(std::int32_t pid, korvel::ObjectRef notifier);
  /// IOAllowPowerChange: acknowledges the message with this id. Returns bad argument for an id that
  /// is not awaited from this registration.
  korvel::KernReturn acknowledge(std::int32_t pid, korvel::ObjectRef notifier,
                                 std::intptr_t notificationID);

  /// For Machine: lets happen whatever is due, lets time pass, and drops what ends with a process
  /// or with a reboot.
  void settle(const SleepConditions& conditions);
  [[nodiscard]] Nanoseconds untilNextEvent() const;
  void pass(Nanoseconds duration);
  void dropProcess(std::int32_t pid);
  void forgetOverReboot();
  [[nodiscard]] Nanoseconds uptime() const { return uptimeNow; }

 private:
  struct Registration {
    std::int32_t pid = 0;
    korvel::ObjectRef notifier = 0;
    Deliver deliver;
    std::intptr_t awaited = 0;  ///< The id that it has still to acknowledge; 0: none.
    int timeouts = 0;
  };
  void announce(std::uint32_t messageType, bool acknowledged);
  [[nodiscard]] bool allAcknowledged() const;
  void giveUpWaiting();
  bool wakeFrom(std::string_view cause);  ///< False: it is awake.
  void noteActivity();
  void beginRequestedSleep();
  void beginSleep(SleepReason reason);
  void leave();
  void fallAsleep();
  void wakeNow();
  void expireAssertions();
  [[nodiscard]] std::optional<std::string> holder(SleepReason reason) const;
  void considerAutomaticSleep();

  MachineContext& context;
  std::vector<Assertion> held;
  std::uint32_t lastAssertionID = 33000;
  std::optional<bool> sleepDisabledSetting;
  std::vector<Registration> registrations;
  std::intptr_t lastNotificationID = 0x3a0000;
  SleepPhase sleepPhase = SleepPhase::Awake;
  std::optional<SleepReason> requested;
  std::optional<std::string> wakeCause;
  SleepConditions around;
  /// The automatic sleep that was told last to be held off, and by whom.
  std::optional<std::pair<SleepReason, std::string>> heldOff;
  bool activity = false;  ///< Somebody touched the machine since it settled.
  Nanoseconds uptimeNow = 0;
  Nanoseconds acknowledgementsDue = 0;
  Nanoseconds idleSince = 0;
  Nanoseconds idleSleepAfter;
};

}  // namespace virtualmac
