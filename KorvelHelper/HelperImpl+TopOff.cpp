// Letting the battery fill once. Each request is a generation; a loop that finds the counter moved
// on stands down, so that an old loop can never put a limit over a newer request.

#include "HelperImpl.h"
#include "Platform/WallClock.h"

namespace korvel {

namespace {

constexpr double restoreIntervalSeconds = 5.0;
constexpr std::int64_t maximumTicks = 1440;  // two hours
constexpr std::int64_t fullPercent = 100;

}  // namespace

void HelperImpl::releaseLimitUntilFullThenRestore(Reply reply) {
  const CallerIdentity caller = currentCallerIdentity();
  log.log(
      "releaseLimitUntilFullThenRestore pid=%{public}d signingID=%{public}s team=%{public}s "
      "cdHash=%{public}s",
      caller.pid, caller.signingID.c_str(), caller.teamID.c_str(), caller.cdHashHex.c_str());
  submitCommand(std::move(reply), [](HelperImpl& self, Reply answer) {
    self.smcQueue.assertCurrent();
    self.startTopOff(std::move(answer));
  });
}

void HelperImpl::startTopOff(Reply reply) {
  stopPollingLoop();
  const HelperCapabilities caps = currentCapabilities();
  static_cast<void>(writeDischargeStopKeys(caps));
  disarmClamshellKeepAwake();
  releaseDischargeAssertion();
  {
    const ScopedLock held(stateLock);
    state.forceDischargeActive = false;
  }
  if (const WriterResult resumed = writeChargingResume(caps); !resumed) {
    // Nothing is rolled back: enforcement stays stopped until another command starts it.
    reply(false, smcNSError(resumed.error()));
    return;
  }
  const Date now = platform.clock.now();
  {
    const ScopedLock held(stateLock);
    state.lastWriteAt = now;
    state.topUpActive = true;
  }
  persistCurrentState();
  const std::uint64_t generation = supersedeTopOff();
  reply(true, std::nullopt);
  scheduleTopOffRestoreLoop(generation);
}

void HelperImpl::scheduleTopOffRestoreLoop(std::uint64_t generation) {
  const std::int64_t savedLimit = stateField(&HelperState::chargeLimit);
  const auto ticks = std::make_shared<std::int64_t>(0);
  endTopOffLoop();
  auto timer = platform.dispatch.makeTimer(smcQueue.platformQueue());
  timer->schedule(restoreIntervalSeconds, restoreIntervalSeconds, 0);
  timer->setEventHandler([weak = weak_from_this(), generation, ticks, savedLimit] {
    const std::shared_ptr<HelperImpl> core = weak.lock();
    if (!core) return;
    core->smcQueue.assertCurrent();
    core->topOffTick(generation, *ticks, savedLimit);
  });
  topOffRestoreTimer = std::move(timer);
  topOffRestoreTimer->resume();
}

void HelperImpl::topOffTick(std::uint64_t generation, std::int64_t& ticks,
                            std::int64_t savedLimit) {
  if (currentTopOffGeneration() != generation) {
    log.log("top-off restore loop superseded — bailing");
    endTopOffLoop();
    return;
  }
  ++ticks;
  const std::optional<std::int64_t> capacity = currentBatteryCapacityPercent();
  const bool full = capacity && *capacity >= fullPercent;
  if (!full && ticks < maximumTicks) return;
  if (!full) {
    log.error("top-off restore loop timed out without reaching 100%% — restoring limit");
  }
  endTopOffLoop();
  {
    const ScopedLock held(stateLock);
    state.topUpActive = false;
  }
  persistCurrentState();
  startPollingLoop(savedLimit);
  if (full) {
    log.log("top-off complete — restored limit %{public}ld", static_cast<long>(savedLimit));
  }
}

std::uint64_t HelperImpl::currentTopOffGeneration() {
  const ScopedLock held(topOffGenerationLock);
  return topOffGeneration;
}

void HelperImpl::endTopOffLoop() {
  if (!topOffRestoreTimer) return;
  topOffRestoreTimer->cancel();
  topOffRestoreTimer.reset();
}

void HelperImpl::cancelTopUp(Reply reply) {
  const CallerIdentity caller = currentCallerIdentity();
  log.log("cancelTopUp pid=%{public}d signingID=%{public}s team=%{public}s cdHash=%{public}s",
          caller.pid, caller.signingID.c_str(), caller.teamID.c_str(), caller.cdHashHex.c_str());
  submitCommand(std::move(reply), [](HelperImpl& self, Reply answer) {
    self.smcQueue.assertCurrent();
    if (self.stateField(&HelperState::topUpActive)) self.endTopOffNow();
    answer(true, std::nullopt);
  });
}

void HelperImpl::endTopOffNow() {
  supersedeTopOff();
  const std::int64_t limit = stateField(&HelperState::chargeLimit);
  const Date now = platform.clock.now();
  {
    const ScopedLock held(stateLock);
    state.topUpActive = false;
    state.lastWriteAt = now;
  }
  persistCurrentState();
  startPollingLoop(limit);
}

}  // namespace korvel
