// Who is there: enforcement runs while a client is connected, and for a grace period afterwards.

#include <limits>

#include "Base/Trap.h"
#include "HelperImpl.h"

namespace korvel {

namespace {

constexpr double gracePeriodSeconds = 30.0;

}  // namespace

void HelperImpl::clientDidConnect() {
  submit([](HelperImpl& self) {
    self.smcQueue.assertCurrent();
    self.countClientIn();
  });
}

void HelperImpl::clientDidDisconnect() {
  submit([](HelperImpl& self) {
    self.smcQueue.assertCurrent();
    self.countClientOut();
  });
}

void HelperImpl::countClientIn() {
  if (activeClientCount == std::numeric_limits<std::int64_t>::max()) {
    trap("the client count overflowed");
  }
  ++activeClientCount;
  cancelClientReleaseTimer();
  log.log("client connected (count=%{public}ld)", static_cast<long>(activeClientCount));
  if (pollingTimer) return;
  const HelperState known = stateCopy();
  const bool armable = known.chargeLimit >= 20 && known.chargeLimit <= 100 &&
                       known.lastWriteAt != Date::distantPast();
  if (!armable) return;
  log.log("client connect — arming polling loop at limit=%{public}ld",
          static_cast<long>(known.chargeLimit));
  startPollingLoop(known.chargeLimit);
}

void HelperImpl::countClientOut() {
  if (activeClientCount > 0) --activeClientCount;
  log.log("client disconnected (count=%{public}ld)", static_cast<long>(activeClientCount));
  if (activeClientCount == 0) startClientReleaseTimer();
}

void HelperImpl::cancelClientReleaseTimer() {
  if (!clientReleaseTimer) return;
  clientReleaseTimer->cancel();
  clientReleaseTimer.reset();
}

void HelperImpl::startClientReleaseTimer() {
  cancelClientReleaseTimer();
  auto timer = platform.dispatch.makeTimer(smcQueue.platformQueue());
  timer->schedule(gracePeriodSeconds, std::nullopt, 0);
  timer->setEventHandler([weak = weak_from_this()] {
    const std::shared_ptr<HelperImpl> core = weak.lock();
    if (!core) return;
    core->smcQueue.assertCurrent();
    core->cancelClientReleaseTimer();
    if (core->activeClientCount == 0) core->suspendEnforcementForNoClient();
  });
  clientReleaseTimer = std::move(timer);
  clientReleaseTimer->resume();
}

void HelperImpl::suspendEnforcementForNoClient() {
  const HelperState known = stateCopy();
  if (!pollingTimer && !known.forceDischargeActive) {
    if (clamshellKeepAwakeArmed) {
      log.log("client gone with keep-awake armed but nothing enforcing — disarming");
      disarmClamshellKeepAwake();
    }
    log.log("client gone — nothing to suspend (no active limit)");
    return;
  }
  if (known.forceDischargeActive && clamshellKeepAwakeArmed) {
    log.log(
        "client gone but armed clamshell discharge active — keeping enforcement (bounded by "
        "target/floor/max-duration)");
    return;
  }
  log.log(
      "all clients gone — suspending enforcement, resuming normal charging (saved "
      "limit=%{public}ld retained)",
      static_cast<long>(known.chargeLimit));
  supersedeTopOff();
  stopPollingLoop();
  const HelperCapabilities caps = currentCapabilities();
  disarmClamshellKeepAwake();
  static_cast<void>(writeDischargeStopKeys(caps));
  releaseDischargeAssertion();
  static_cast<void>(writeChargingResume(caps));
  {
    // The limit and the time of its last write stay: the next client starts enforcement again.
    const ScopedLock held(stateLock);
    state.forceDischargeActive = false;
    state.heatPauseActive = false;
    state.topUpActive = false;
  }
  persistCurrentState();
}

}  // namespace korvel
