#include "HelperImpl.h"

#include "Base/ByteList.h"
#include "Platform/Process.h"
#include "Platform/XPCListener.h"
#include "ScopedCode.h"

namespace korvel {

namespace {

std::optional<std::string> runningHelperVersion(Process& process) {
  const PropertyValue version = process.bundleInfo("CFBundleShortVersionString");
  return version.text() == nullptr ? std::nullopt : std::optional(*version.text());
}

}  // namespace

std::shared_ptr<HelperImpl> HelperImpl::create(Platform& outside) {
  const std::shared_ptr<HelperImpl> core(new HelperImpl(outside));
  core->boot();
  return core;
}

HelperImpl::HelperImpl(Platform& outside)
    : platform(outside),
      log(platform.log, "HelperImpl"),
      smcQueue(platform.dispatch.makeSerialQueue("com.korvel.app.helper.smc")),
      writer(platform.smc, Logger(platform.log, "SMCWriter")),
      nativeChargeBackend(PowerUIChargeBackend::make(platform.smartCharge,
                                                     Logger(platform.log, "PowerUIChargeBackend"))),
      persistence(platform.files, Logger(platform.log, "Persistence")),
      pmAssertions(platform.assertions, platform.dispatch, platform.log),
      clamshellSleep(platform.powerSettings, Logger(platform.log, "ClamshellSleep")),
      capabilitiesLock(platform.dispatch.makeLock("capabilitiesLock")),
      stateLock(platform.dispatch.makeLock("stateLock")),
      topOffGenerationLock(platform.dispatch.makeLock("topOffGenerationLock")) {
  state = persistence.read();
  state.lastDischargeAbortReason.reset();
  state.lastDischargeAbortAt.reset();
  state.topUpActive = false;
  state.helperVersion = runningHelperVersion(platform.process);
}

void HelperImpl::ping(PidReply reply) {
  reply(static_cast<std::uint64_t>(platform.process.getpid()));
}

void HelperImpl::getState(DataReply reply) { reply(encodeReply(stateCopy())); }

void HelperImpl::capabilities(DataReply reply) { reply(encodeReply(currentCapabilities())); }

void HelperImpl::submit(Work work) {
  post([work](HelperImpl* core) {
    if (core != nullptr) (core->*work)();
  });
}

void HelperImpl::submitAndWait(Work work, double seconds) {
  const std::shared_ptr<DispatchGroup> group = platform.dispatch.makeGroup();
  group->enter();
  post([work, group](HelperImpl* core) {
    if (core != nullptr) (core->*work)();
    group->leave();
  });
  static_cast<void>(group->wait(seconds));
}

void HelperImpl::startTimer(std::unique_ptr<TimerSource>& slot, double firstSeconds,
                            std::optional<double> intervalSeconds, Work work) {
  stopTimer(slot);
  auto timer = platform.dispatch.makeTimer(smcQueue.platformQueue());
  timer->schedule(firstSeconds, intervalSeconds, 0);
  timer->setEventHandler([weak = weak_from_this(), work] {
    const std::shared_ptr<HelperImpl> core = weak.lock();
    if (!core) return;
    core->smcQueue.assertCurrent();
    (core.get()->*work)();
  });
  slot = std::move(timer);
  slot->resume();
}

void HelperImpl::stopTimer(std::unique_ptr<TimerSource>& slot) {
  if (!slot) return;
  slot->cancel();
  slot.reset();
}

HelperCapabilities HelperImpl::currentCapabilities() {
  const ScopedLock held(capabilitiesLock);
  if (!cachedCapabilities) cachedCapabilities = probeInPlace();
  return *cachedCapabilities;
}

// Unchecked by the compiler on purpose: a caller that finds the cache empty probes where it stands,
// also off smcQueue. Creation fills the cache through the queue before anybody else has the core,
// so in a running helper no such caller exists.
HelperCapabilities HelperImpl::probeInPlace() {
  HelperCapabilities found = writer.probeCapabilities();
  found.nativeCharging = nativeChargeBackend != nullptr;
  return found;
}

CallerIdentity HelperImpl::currentCallerIdentity() const {
  CallerIdentity caller;
  const std::optional<std::int32_t> client = platform.xpc.currentConnectionPid();
  caller.pid = client ? *client : platform.process.getpid();

  CodeSigning& signing = platform.codeSigning;
  ScopedCode guest(signing);
  if (signing.copyGuestWithPid(caller.pid, guest.slot()) != 0 || !guest) return caller;
  ScopedCode program(signing);
  if (signing.copyStaticCode(guest.get(), program.slot()) != 0 || !program) return caller;
  const PropertyValue information = signingInformation(signing, program.get());

  caller.signingID = textOrEmpty(information[codeInfoIdentifierKey]);
  caller.teamID = textOrEmpty(information[codeInfoTeamIdentifierKey]);
  // The system files its hash under other names, so the log normally shows an empty one.
  const PropertyValue& hash = information["cdhash"];
  if (hash.data() != nullptr) caller.cdHashHex = lowerHex(*hash.data());
  return caller;
}

std::string HelperImpl::callerText() const {
  const CallerIdentity caller = currentCallerIdentity();
  return logText("pid=%{public}d signingID=%{public}s team=%{public}s cdHash=%{public}s",
                 caller.pid, caller.signingID.c_str(), caller.teamID.c_str(),
                 caller.cdHashHex.c_str());
}

HelperState HelperImpl::stateCopy() {
  const ScopedLock held(stateLock);
  return state;
}

std::uint64_t HelperImpl::supersedeTopOff() {
  const ScopedLock held(topOffGenerationLock);
  return ++topOffGeneration;
}

void HelperImpl::releaseDischargeAssertion() {
  if (!dischargeAssertionID) return;
  pmAssertions.release(*dischargeAssertionID);
  dischargeAssertionID.reset();
}

}  // namespace korvel
