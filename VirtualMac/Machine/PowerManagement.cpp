#include "VirtualMac/Machine/PowerManagement.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

namespace {

constexpr std::string_view userIdleType = "PreventUserIdleSystemSleep";
constexpr std::string_view systemSleepType = "PreventSystemSleep";
constexpr std::string_view sleepDisabledKey = "SleepDisabled";

/// A process that let this many announcements time out is not waited for any more.
constexpr int toleratedTimeouts = 3;

/// Message identifiers go up in steps, like the kernel's.
constexpr std::intptr_t notificationIDStep = 2;

double secondsIn(const korvel::PropertyValue& value) {
  if (const auto real = value.real()) return *real;
  return static_cast<double>(value.integer().value_or(0));
}

std::string messageText(std::uint32_t messageType) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(messageType));
  return text;
}

std::string wholeSeconds(double seconds) {
  return std::to_string(static_cast<long long>(seconds)) + " s";
}

}  // namespace

std::string_view sleepReasonText(SleepReason reason) {
  static constexpr std::array<std::string_view, 4> texts{"idle", "lid", "requested", "low battery"};
  return texts[static_cast<std::size_t>(reason)];
}

PowerManagement::PowerManagement(MachineContext& shared, std::int64_t idleSleepMinutes)
    : context(shared), idleSleepAfter(idleSleepMinutes * 60 * nanosecondsPerSecond) {}

korvel::KernReturn PowerManagement::createAssertion(std::int32_t owner,
                                                    const korvel::PropertyValue& properties,
                                                    std::uint32_t& id) {
  const std::string* type = properties["AssertType"].text();
  const std::string* name = properties["AssertName"].text();
  if (type == nullptr || name == nullptr) return korvel::ioReturnBadArgument;
  if (assertionRefusal) return *assertionRefusal;
  if (secondaryAssertionRefusal && *type == systemSleepType) return *secondaryAssertionRefusal;

  Assertion made;
  made.id = ++lastAssertionID;
  made.owner = owner;
  made.type = *type;
  made.name = *name;
  made.level = properties["AssertLevel"].integer().value_or(0);
  const double timeout = std::min(secondsIn(properties["TimeoutSeconds"]), bounds::longestSeconds);
  if (timeout > 0) made.releasedAtUptime = uptimeNow + fromSeconds(timeout);
  const std::string* action = properties["TimeoutAction"].text();
  made.releaseOnTimeout = action != nullptr && *action == "TimeoutActionRelease";
  context.journal.record<EffectID::assertionCreated>(
      made.id, made.type, made.name, owner, timeout > 0 ? wholeSeconds(timeout) : "no time-out");
  id = made.id;
  held.push_back(std::move(made));
  context.noteChange();
  return korvel::kernSuccess;
}

korvel::KernReturn PowerManagement::releaseAssertion(std::uint32_t id) {
  if (id == 0) return korvel::ioReturnBadArgument;
  if (assertionReleaseRefusal) return *assertionReleaseRefusal;
  const auto found = std::ranges::find(held, id, &Assertion::id);
  if (found == held.end()) return ioReturnNotFound;
  held.erase(found);
  context.journal.record<EffectID::assertionReleased>(id);
  context.noteChange();
  return korvel::kernSuccess;
}

void PowerManagement::expireAssertions() {
  for (auto each = held.begin(); each != held.end();) {
    if (!each->releasedAtUptime || *each->releasedAtUptime > uptimeNow) {
      ++each;
      continue;
    }
    context.journal.record<EffectID::assertionTimedOut>(each->id);
    context.noteChange();
    if (each->releaseOnTimeout) {
      each = held.erase(each);
    } else {
      each->level = 0;
      each->releasedAtUptime.reset();
      ++each;
    }
  }
}

korvel::KernReturn PowerManagement::setSystemPowerSetting(std::string_view key, bool value,
                                                          bool privileged) {
  if (!privileged || settingRefusal) {
    const korvel::KernReturn code = settingRefusal.value_or(korvel::ioReturnNotPrivileged);
    context.journal.record<EffectID::settingRefused>(key, int{value}, code);
    return code;
  }
  if (key == sleepDisabledKey) sleepDisabledSetting = value;
  context.journal.record<EffectID::settingWritten>(key, int{value});
  context.noteChange();
  return korvel::kernSuccess;
}

korvel::PropertyValue PowerManagement::copySystemPowerSettings() {
  if (settingsOverride) return *settingsOverride;
  if (!sleepDisabledSetting) return {};
  return korvel::PropertyValue::Dictionary{{std::string(sleepDisabledKey), *sleepDisabledSetting}};
}

void PowerManagement::setSleepDisabledExternally(std::optional<bool> value) {
  sleepDisabledSetting = value;
  context.noteChange();
  if (value) {
    context.journal.record<EffectID::settingByOther>(sleepDisabledKey, int{*value});
  } else {
    context.journal.record<EffectID::settingRemovedByOther>(sleepDisabledKey);
  }
}

void PowerManagement::requestSleep(SleepReason reason) {
  requested = reason;
  context.noteChange();
}

void PowerManagement::wake(std::string_view cause) {
  if (!wakeFrom(cause)) userActivity();
}

bool PowerManagement::wakeFrom(std::string_view cause) {
  if (sleepPhase == SleepPhase::Awake || sleepPhase == SleepPhase::Asking) return false;
  wakeCause = std::string(cause);
  context.noteChange();
  return true;
}

void PowerManagement::userActivity() {
  context.journal.record("mac", "touched");
  noteActivity();
}

void PowerManagement::noteActivity() {
  idleSince = uptimeNow;
  activity = true;
  context.noteChange();
}

void PowerManagement::setIdleSleepMinutes(std::int64_t minutes) {
  idleSleepAfter = minutes * 60 * nanosecondsPerSecond;
  idleSince = uptimeNow;
  context.noteChange();
  context.journal.record("mac", minutes == 0
                                    ? std::string("idle sleep off")
                                    : "idle sleep after " + std::to_string(minutes) + " min");
}

std::int64_t PowerManagement::idleSleepMinutes() const {
  return idleSleepAfter / (60 * nanosecondsPerSecond);
}

void PowerManagement::addRegistration(std::int32_t pid, korvel::ObjectRef notifier,
                                      Deliver deliver) {
  registrations.push_back({.pid = pid, .notifier = notifier, .deliver = std::move(deliver)});
}

void PowerManagement::removeRegistration(std::int32_t pid, korvel::ObjectRef notifier) {
  std::erase_if(registrations, [&](const Registration& each) {
    return each.pid == pid && each.notifier == notifier;
  });
  context.noteChange();
}

korvel::KernReturn PowerManagement::acknowledge(std::int32_t pid, korvel::ObjectRef notifier,
                                                std::intptr_t notificationID) {
  for (Registration& each : registrations) {
    if (each.pid != pid || each.notifier != notifier) continue;
    if (notificationID == 0 || each.awaited != notificationID) break;
    each.awaited = 0;
    each.timeouts = 0;
    context.journal.record<EffectID::messageAcknowledged>(pid);
    context.noteChange();
    return korvel::kernSuccess;
  }
  return korvel::ioReturnBadArgument;
}

void PowerManagement::announce(std::uint32_t messageType, bool acknowledged) {
  std::vector<std::pair<Deliver, PowerMessage>> outgoing;
  outgoing.reserve(registrations.size());
  for (Registration& each : registrations) {
    PowerMessage message{each.pid, each.notifier, messageType, 0};
    each.awaited = 0;
    if (acknowledged) {
      lastNotificationID += notificationIDStep;
      message.notificationID = lastNotificationID;
      if (each.timeouts < toleratedTimeouts) each.awaited = message.notificationID;
    }
    context.journal.record<EffectID::messageSent>(messageText(messageType), each.pid);
    outgoing.emplace_back(each.deliver, message);
  }
  // A delivery may call back into the machine, so the registrations are not walked meanwhile.
  for (const auto& [deliver, message] : outgoing) deliver(message);
  acknowledgementsDue = uptimeNow + fromSeconds(acknowledgementSeconds);
}

bool PowerManagement::allAcknowledged() const {
  return std::ranges::all_of(registrations,
                             [](const Registration& each) { return each.awaited == 0; });
}

void PowerManagement::giveUpWaiting() {
  for (Registration& each : registrations) {
    if (each.awaited == 0) continue;
    each.awaited = 0;
    ++each.timeouts;
    context.journal.record<EffectID::messageNotAcknowledged>(each.pid);
  }
}

std::optional<std::string> PowerManagement::holder(SleepReason reason) const {
  if (reason == SleepReason::LowBattery) return std::nullopt;
  if (sleepDisabled()) return std::string(sleepDisabledKey);
  if (reason == SleepReason::Lid) {
    if (around.displayConnected && around.adapterConnected) return "display and adapter";
    return std::nullopt;
  }
  for (const Assertion& each : held) {
    if (each.level == 0) continue;
    const bool idleHeld = reason == SleepReason::Idle && each.type == userIdleType;
    const bool systemHeld = each.type == systemSleepType && around.adapterConnected;
    if (idleHeld || systemHeld) return "assertion " + std::to_string(each.id);
  }
  return std::nullopt;
}

void PowerManagement::considerAutomaticSleep() {
  std::optional<SleepReason> due;
  if (idleSleepAfter > 0 && uptimeNow - idleSince >= idleSleepAfter) due = SleepReason::Idle;
  if (around.lidClosed) due = SleepReason::Lid;
  if (around.batteryLow) due = SleepReason::LowBattery;
  if (!due) {
    heldOff.reset();
    return;
  }
  const std::optional<std::string> by = holder(*due);
  if (!by) {
    heldOff.reset();
    beginSleep(*due);
    return;
  }
  // Told once for as long as the same thing holds the same sleep off.
  if (heldOff == std::pair(*due, *by)) return;
  context.journal.record<EffectID::sleepHeldOff>(sleepReasonText(*due), *by);
  heldOff = {*due, *by};
}

void PowerManagement::beginRequestedSleep() {
  const SleepReason reason = *std::exchange(requested, std::nullopt);
  if (sleepPhase == SleepPhase::Leaving || sleepPhase == SleepPhase::Asleep) return;
  const std::optional<std::string> by = holder(reason);
  if (by) {
    context.journal.record<EffectID::sleepHeldOff>(sleepReasonText(reason), *by);
  } else {
    beginSleep(reason);
  }
}

void PowerManagement::beginSleep(SleepReason reason) {
  context.journal.record<EffectID::sleepBegins>(sleepReasonText(reason));
  if (reason == SleepReason::Idle) {
    sleepPhase = SleepPhase::Asking;
    announce(korvel::ioMessageCanSystemSleep, true);
  } else {
    leave();
  }
}

void PowerManagement::leave() {
  sleepPhase = SleepPhase::Leaving;
  announce(korvel::ioMessageSystemWillSleep, true);
}

void PowerManagement::fallAsleep() {
  sleepPhase = SleepPhase::Asleep;
  context.journal.record<EffectID::fellAsleep>();
  context.noteChange();
}

void PowerManagement::wakeNow() {
  sleepPhase = SleepPhase::Awake;
  idleSince = uptimeNow;
  context.journal.record<EffectID::woke>(*wakeCause);
  wakeCause.reset();
  context.noteChange();
  announce(korvel::ioMessageSystemWillPowerOn, false);
  announce(korvel::ioMessageSystemHasPoweredOn, false);
}

void PowerManagement::settle(const SleepConditions& conditions) {
  const bool opened = around.lidClosed && !conditions.lidClosed;
  around = conditions;
  if (opened && !wakeFrom("lid opened")) noteActivity();
  expireAssertions();
  if (std::exchange(activity, false) && sleepPhase == SleepPhase::Asking) {
    sleepPhase = SleepPhase::Awake;
    context.journal.record<EffectID::sleepTakenBack>(sleepReasonText(SleepReason::Idle));
    announce(korvel::ioMessageSystemWillNotSleep, false);
  }
  if (requested) beginRequestedSleep();
  if (sleepPhase == SleepPhase::Awake) considerAutomaticSleep();
  if (sleepPhase == SleepPhase::Asking || sleepPhase == SleepPhase::Leaving) {
    if (!allAcknowledged() && uptimeNow >= acknowledgementsDue) giveUpWaiting();
    if (!allAcknowledged()) return;
    if (sleepPhase == SleepPhase::Asking) {
      leave();
      context.noteChange();
    } else {
      fallAsleep();
    }
  }
  if (sleepPhase == SleepPhase::Asleep && wakeCause) wakeNow();
}

Nanoseconds PowerManagement::untilNextEvent() const {
  // The uptime stands still in sleep, and so does everything that is counted in it.
  if (sleepPhase == SleepPhase::Asleep) return neverNanoseconds;
  Nanoseconds next = neverNanoseconds;
  for (const Assertion& each : held) {
    if (each.releasedAtUptime) next = std::min(next, *each.releasedAtUptime - uptimeNow);
  }
  if (sleepPhase != SleepPhase::Awake) next = std::min(next, acknowledgementsDue - uptimeNow);
  const Nanoseconds idleFor = uptimeNow - idleSince;
  // Once the idle time is over, only a change can let the machine sleep; settling sees it.
  if (sleepPhase == SleepPhase::Awake && idleSleepAfter > idleFor) {
    next = std::min(next, idleSleepAfter - idleFor);
  }
  return std::max<Nanoseconds>(0, next);
}

void PowerManagement::pass(Nanoseconds duration) {
  if (sleepPhase != SleepPhase::Asleep) uptimeNow += duration;
}

void PowerManagement::dropProcess(std::int32_t pid) {
  for (const Assertion& each : held) {
    if (each.owner == pid) context.journal.record<EffectID::assertionDropped>(each.id, pid);
  }
  std::erase_if(held, [pid](const Assertion& each) { return each.owner == pid; });
  std::erase_if(registrations, [pid](const Registration& each) { return each.pid == pid; });
  context.noteChange();
}

void PowerManagement::forgetOverReboot() {
  sleepDisabledSetting.reset();
  requested.reset();
  wakeCause.reset();
  heldOff.reset();
  sleepPhase = SleepPhase::Awake;
  idleSince = uptimeNow;
  context.noteChange();
}

}  // namespace virtualmac
