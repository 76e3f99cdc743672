// Clients are counted: enforcement runs while one is connected, and for a grace period afterwards.

#include <limits>

#include "Base/Trap.h"
#include "ChargeLimits.h"
#include "HelperImpl.h"

namespace korvel {

namespace {

constexpr double gracePeriodSeconds = 30.0;

}  // namespace

void HelperImpl::clientDidConnect() { submit(&HelperImpl::countClientIn); }

void HelperImpl::clientDidDisconnect() { submit(&HelperImpl::countClientOut); }

void HelperImpl::countClientIn() {
  if (activeClientCount == std::numeric_limits<std::int64_t>::max()) {
    trap("the client count overflowed");
  }
  ++activeClientCount;
  stopTimer(clientReleaseTimer);
  log.log("client connected (count=%{public}ld)", static_cast<long>(activeClientCount));
  if (pollingTimer) return;
  const HelperState known = stateCopy();
  if (!ChargeLimits::startsOnConnect(known.chargeLimit, known.lastWriteAt)) return;
  log.log("client connect — arming polling loop at limit=%{public}ld",
          static_cast<long>(known.chargeLimit));
  startPollingLoop(known.chargeLimit);
}

void HelperImpl::countClientOut() {
  if (activeClientCount > 0) --activeClientCount;
  log.log("client disconnected (count=%{public}ld)", static_cast<long>(activeClientCount));
  if (activeClientCount > 0) return;
  startTimer(clientReleaseTimer, gracePeriodSeconds, std::nullopt, &HelperImpl::clientReleaseDue);
}

void HelperImpl::clientReleaseDue() {
  stopTimer(clientReleaseTimer);
  if (activeClientCount == 0) suspendEnforcementForNoClient();
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
  stopTimer(pollingTimer);
  const HelperCapabilities caps = currentCapabilities();
  disarmClamshellKeepAwake();
  static_cast<void>(writeDischargeStopKeys(caps));
  releaseDischargeAssertion();
  static_cast<void>(writeChargingResume(caps));
  // The limit and the time of its last write stay: the next client starts enforcement again.
  changeState([](HelperState& record) {
    record.forceDischargeActive = false;
    record.heatPauseActive = false;
    record.topUpActive = false;
  });
  persistCurrentState();
}

}  // namespace korvel
