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
      [weak = weak_from_this()] {
        if (const std::shared_ptr<HelperImpl> core = weak.lock()) core->flushPreSleepPause();
      },
      [weak = weak_from_this()] {
        const std::shared_ptr<HelperImpl> core = weak.lock();
        if (core) core->submit(&HelperImpl::evaluateOnWake);
      });
  observer->start();
  powerObserver = std::move(observer);
}

void HelperImpl::installAbortTrap() {
  auto source = platform.dispatch.makeSignalSource(signalAbort);
  source->setEventHandler([weak = weak_from_this()] {
    const std::shared_ptr<HelperImpl> core = weak.lock();
    if (!core) return;
    const Logger bootLog(core->platform.log, "Boot");
    bootLog.fault("SIGABRT — running shutdownGracefully before exit");
    core->shutdownGracefully();
  });
  source->resume();
  platform.dispatch.ignoreDefaultAction(signalAbort);
  sigabrtSource = std::move(source);
}

}  // namespace korvel
