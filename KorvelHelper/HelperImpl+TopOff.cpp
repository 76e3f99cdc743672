// The battery may fill once. Each request is a generation; a loop that finds the counter moved on
// stands down, so that an old loop can never put a limit over a newer request.

#include "HelperImpl.h"
#include "MachineReadings.h"
#include "Platform/WallClock.h"

namespace korvel {

namespace {

constexpr double restoreIntervalSeconds = 5.0;
constexpr std::int64_t maximumTicks = 1440;  // two hours
constexpr std::int64_t fullPercent = 100;

}  // namespace

void HelperImpl::releaseLimitUntilFullThenRestore(Reply reply) {
  log.log("releaseLimitUntilFullThenRestore %{public}s", callerText().c_str());
  submitCommand(std::move(reply), &HelperImpl::startTopOff);
}

void HelperImpl::startTopOff(Reply reply) {
  stopTimer(pollingTimer);
  const HelperCapabilities caps = currentCapabilities();
  static_cast<void>(writeDischargeStopKeys(caps));
  disarmClamshellKeepAwake();
  releaseDischargeAssertion();
  changeState([](HelperState& record) { record.forceDischargeActive = false; });
  if (const WriterResult resumed = writeChargingResume(caps); !resumed) {
    // Nothing is rolled back: enforcement stays stopped until another command starts it.
    reply(false, smcNSError(resumed.error()));
    return;
  }
  const Date now = platform.clock.now();
  changeState([now](HelperState& record) {
    record.lastWriteAt = now;
    record.topUpActive = true;
  });
  persistCurrentState();
  topOffLoopGeneration = supersedeTopOff();
  reply(true, std::nullopt);
  topOffSavedLimit = stateField(&HelperState::chargeLimit);
  topOffTicks = 0;
  startTimer(topOffRestoreTimer, restoreIntervalSeconds, restoreIntervalSeconds,
             &HelperImpl::topOffTick);
}

void HelperImpl::topOffTick() {
  if (currentTopOffGeneration() != topOffLoopGeneration) {
    log.log("top-off restore loop superseded — bailing");
    stopTimer(topOffRestoreTimer);
    return;
  }
  ++topOffTicks;
  const auto capacity = MachineReadings::batteryCapacityPercent(platform.powerSources);
  const bool full = capacity && *capacity >= fullPercent;
  if (!full && topOffTicks < maximumTicks) return;
  if (!full) {
    log.error("top-off restore loop timed out without reaching 100%% — restoring limit");
  }
  stopTimer(topOffRestoreTimer);
  changeState([](HelperState& record) { record.topUpActive = false; });
  persistCurrentState();
  startPollingLoop(topOffSavedLimit);
  if (full) {
    log.log("top-off complete — restored limit %{public}ld", static_cast<long>(topOffSavedLimit));
  }
}

std::uint64_t HelperImpl::currentTopOffGeneration() {
  const ScopedLock held(topOffGenerationLock);
  return topOffGeneration;
}

void HelperImpl::cancelTopUp(Reply reply) {
  log.log("cancelTopUp %{public}s", callerText().c_str());
  submitCommand(std::move(reply), &HelperImpl::endTopOff);
}

void HelperImpl::endTopOff(Reply reply) {
  if (stateField(&HelperState::topUpActive)) {
    supersedeTopOff();
    const std::int64_t limit = stateField(&HelperState::chargeLimit);
    const Date now = platform.clock.now();
    changeState([now](HelperState& record) {
      record.topUpActive = false;
      record.lastWriteAt = now;
    });
    persistCurrentState();
    startPollingLoop(limit);
  }
  reply(true, std::nullopt);
}

}  // namespace korvel
