// The second half of creation, once the core has an owner: it announces itself, probes the
// hardware, cleans up after a predecessor that died, and listens for sleep and for an abort.

#include "HelperImpl.h"
#include "Platform/Process.h"

namespace korvel {

void HelperImpl::boot() {
  log.log("HelperImpl boot pid=%{public}d limit=%{public}ld", platform.process.getpid(),
          static_cast<long>(stateField(&HelperState::chargeLimit)));
  smcQueue.sync([this] { static_cast<void>(currentCapabilities()); });
  submit(&HelperImpl::recoverFromCrash);
  installPowerObserver();
  installAbortTrap();
}

void HelperImpl::recoverFromCrash() {
  const HelperState found = stateCopy();
  if (found.forceDischargeActive) {
    log.log("crash-recovery: clearing stuck discharge keys from previous run");
    static_cast<void>(writeDischargeStopKeys(currentCapabilities()));
    changeState([](HelperState& record) { record.forceDischargeActive = false; });
  }
  if (found.sleepDisabledByKorvel) {
    log.log("crash-recovery: clearing SleepDisabled set by previous run");
    clamshellSleep.disable();
    changeState([](HelperState& record) { record.sleepDisabledByKorvel = false; });
  }
  persistCurrentState();
}

void HelperImpl::installPowerObserver() {
  auto observer = std::make_unique<SystemPowerObserver>(
      platform.rootDomain, Logger(platform.log, "SystemPower"),
      whileAlive(&HelperImpl::flushPreSleepPause), whileAlive(&HelperImpl::poweredOn));
  observer->start();
  powerObserver = std::move(observer);
}

void HelperImpl::installAbortTrap() {
  auto source = platform.dispatch.makeSignalSource(signalAbort);
  source->setEventHandler(whileAlive(&HelperImpl::abortReceived));
  source->resume();
  platform.dispatch.ignoreDefaultAction(signalAbort);
  sigabrtSource = std::move(source);
}

void HelperImpl::abortReceived() {
  const Logger bootLog(platform.log, "Boot");
  bootLog.fault("SIGABRT — running shutdownGracefully before exit");
  shutdownGracefully();
}

}  // namespace korvel
