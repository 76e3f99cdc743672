#include "VirtualMac/Machine/Machine.h"

#include <algorithm>
#include <utility>

#include "Base/Trap.h"

namespace virtualmac {

namespace {

/// 2026-01-01T00:00:00Z: every run of a machine begins on the same day.
constexpr double firstDay = 788918400;

/// At this level and below, a machine that runs from its battery goes to sleep.
constexpr int lowBatteryPercent = 2;

/// Settling takes a few rounds; a machine that needs more than this has a defect.
constexpr int mostSettlingRounds = 1000;

constexpr int killSignal = 9;

Effect endOf(std::int32_t pid, const ProcessEnd& how) {
  if (how.signal) return effect<EffectID::helperKilled>(pid, *how.signal);
  if (how.exitStatus) return effect<EffectID::helperExited>(pid, *how.exitStatus);
  return effect<EffectID::helperEnded>(pid);
}

}  // namespace

Machine::Machine(Profile kind, Journal& journal, std::uint64_t seed)
    : profileUsed(std::move(kind)),
      context{journal},
      smc(profileUsed, context),
      adapter(profileUsed.adapterConnected, smc, context),
      lid(profileUsed, context),
      battery(profileUsed.battery, context),
      registry(battery, adapter, lid, smc, context),
      powerSources(profileUsed, battery, adapter, context),
      power(context, profileUsed.idleSleepMinutes),
      powerUI(profileUsed.powerUI, context),
      signatures(profileUsed.identities),
      disk(context, seed),
      launchd(context),
      bundleInformation{{"CFBundleShortVersionString", "2.0.0"}},
      wallAtStart(firstDay) {}

Machine::~Machine() = default;

BatteryConditions Machine::batteryConditions() const {
  BatteryConditions conditions;
  conditions.adapterConnected = adapter.isConnected();
  conditions.inflowInhibited = smc.inflowInhibited();
  conditions.chargingInhibited = smc.chargingInhibited();
  conditions.nativeLimitPercent = powerUI.currentLimit();
  conditions.asleep = off || power.isAsleep();
  conditions.lidClosed = lid.isClosed();
  return conditions;
}

void Machine::settle() {
  for (int round = 0; settledRevision != context.revision; ++round) {
    if (round == mostSettlingRounds) korvel::trap("the virtual machine does not settle");
    settledRevision = context.revision;
    settleOnce();
  }
}

void Machine::settleOnce() {
  battery.setConditions(batteryConditions());
  if (off && adapter.isConnected()) {
    off = false;
    context.journal.record<EffectID::poweredOn>();
    context.noteChange();
    launchd.load();
  }
  const bool draining = battery.isPresent() && battery.isDraining();
  if (!off && draining && battery.isEmpty() && !adapter.isConnected()) {
    goDown(effect<EffectID::batteryRanOut>(), false);
    off = true;
  }
  if (!off) {
    SleepConditions conditions;
    conditions.adapterConnected = adapter.isConnected();
    conditions.lidClosed = lid.isClosed();
    conditions.displayConnected = lid.displayConnected();
    conditions.batteryLow = draining && battery.percent() <= lowBatteryPercent;
    power.settle(conditions);
  }
  launchd.settle();
  nextAt = context.total + untilNext();
}

Nanoseconds Machine::untilNext() const {
  const Nanoseconds forPower = off ? neverNanoseconds : power.untilNextEvent();
  return std::min({battery.untilNextChange(), forPower, launchd.untilNextEvent()});
}

void Machine::pass(Nanoseconds duration) {
  context.total += duration;
  if (!off) power.pass(duration);
  battery.pass(duration);
}

void Machine::advanceNanoseconds(Nanoseconds duration) {
  settle();
  while (duration > 0) {
    const Nanoseconds untilEvent = nextAt - context.total;
    if (duration < untilEvent) {
      pass(duration);
      return;
    }
    pass(untilEvent);
    duration -= untilEvent;
    context.noteChange();
    settle();
  }
}

std::optional<Nanoseconds> Machine::nextEventNanoseconds() const {
  if (settledRevision != context.revision) return 0;
  const Nanoseconds until = nextAt - context.total;
  if (until >= neverNanoseconds / 2) return std::nullopt;
  return until;
}

std::optional<double> Machine::nextEvent() const {
  const std::optional<Nanoseconds> until = nextEventNanoseconds();
  if (!until) return std::nullopt;
  return toSeconds(*until);
}

void Machine::tell(std::string whatWasDone) {
  context.journal.record("mac", std::move(whatWasDone));
}

void Machine::tellSignal(std::int32_t pid, int number) {
  context.journal.record<EffectID::signalSent>(number, pid);
}

korvel::Date Machine::wallClock() const { return korvel::Date{wallAtStart + totalSeconds()}; }

void Machine::setWallClock(korvel::Date now) {
  wallAtStart = now.secondsSinceReference - totalSeconds();
  context.journal.record<EffectID::clockSet>(korvel::iso8601Text(now));
}

std::shared_ptr<HelperProcess> Machine::startProcess(std::int32_t pid) {
  if (processes.contains(pid)) korvel::trap("a process of the virtual machine has this pid");
  auto started = std::make_shared<HelperProcess>(*this, pid);
  processes.emplace(pid, started);
  signatures.setPid(pid, "helper");
  context.journal.record<EffectID::helperStarted>(pid);
  return started;
}

void Machine::endProcess(std::int32_t pid, ProcessEnd how) {
  const auto found = processes.find(pid);
  if (found == processes.end()) return;
  const std::shared_ptr<HelperProcess> ended = found->second;
  processes.erase(found);
  signatures.removePid(pid);
  context.journal.record(endOf(pid, how));
  ended->end();
}

std::shared_ptr<HelperProcess> Machine::process(std::int32_t pid) const {
  const auto found = processes.find(pid);
  return found == processes.end() ? nullptr : found->second;
}

void Machine::goDown(const Effect& cause, bool orderly) {
  context.journal.record(cause);
  launchd.forget();
  if (downHandler) downHandler(cause.text());
  while (!processes.empty()) {
    endProcess(processes.begin()->first, ProcessEnd{std::nullopt, killSignal});
  }
  if (orderly) {
    disk.syncAll();
  } else {
    disk.powerLoss();
  }
  power.forgetOverReboot();
}

void Machine::reboot() {
  goDown(effect<EffectID::rebooted>(), true);
  if (!off) launchd.load();
}

void Machine::powerLoss() {
  goDown(effect<EffectID::powerLost>(), false);
  if (!off) launchd.load();
}

void Machine::setDownHandler(std::function<void(std::string_view cause)> handler) {
  downHandler = std::move(handler);
}

void Machine::installHelper(const std::string& version) {
  bundleInformation["CFBundleShortVersionString"] = version;
  tell("helper version " + version + " installed");
}

double Machine::latencySeconds(SeamCall call) const {
  const double own = call == SeamCall::smcCallStruct ? smc.callLatencySeconds : 0;
  return own + latencies[static_cast<std::size_t>(call)];
}

void Machine::setLatencySeconds(SeamCall call, double seconds) {
  latencies[static_cast<std::size_t>(call)] = seconds;
}

bool Machine::givingBackTakesTime() const {
  for (std::size_t i = 0; i < seamCallCount; ++i)
    if (seamCalls[i].kind == FailureKind::Release && latencies[i] > 0) return true;
  return false;
}

}  // namespace virtualmac
