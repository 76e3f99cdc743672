#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Lock.h"
#include "Base/SerialQueue.h"
#include "ClamshellSleepController.h"
#include "DischargeDecision.h"
#include "HelperPersistence.h"
#include "HelperRecords.h"
#include "IOPMAssertionManager.h"
#include "KorvelHelperProtocol.h"
#include "Logger.h"
#include "Platform/Dispatch.h"
#include "Platform/Platform.h"
#include "PowerUIChargeBackend.h"
#include "SMCWriter.h"
#include "SystemPowerObserver.h"

namespace korvel {

/// The helper itself: implements the protocol and owns the charging state machine.
///
/// Terms. The *gate* lets the battery charge or pauses it. *Enforcement* is the polling loop that
/// holds the gate to a target. A *discharge* inhibits the adapter's inflow; while one runs, the
/// loop is its watchdog. *Keep-awake* holds the Mac awake under a closed lid. A *top-off* lets the
/// battery fill once.
///
/// Normal flow. A command arrives on an XPC thread, logs who asked, checks its argument and posts
/// its work to smcQueue. All hardware, all timers and the whole state machine live there, one piece
/// of work at a time; the work changes the state record, persists it, and replies.
///
/// What ends it. The last client leaving suspends enforcement after a grace period; sleep stops a
/// discharge and pauses the gate; shutdown restores every key, then the process exits.
///
/// Threads. XPC threads read copies under a lock and post; the main thread posts and waits, 0.1 s
/// before sleep and 0.5 s at shutdown at most. Locks guard one field each, are held for a copy or
/// an assignment, and never two together. Posted work holds the core weakly: once it is gone, the
/// work replies (false, none) and does nothing else.
///
/// Failure. A failed hardware call is a value that becomes a reply or a log line; a failed state
/// write is only logged. Nothing but a programming error stops the process.
class HelperImpl final : public KorvelHelperProtocol,
                         public std::enable_shared_from_this<HelperImpl> {
  struct OnlyFromCreate {
    explicit OnlyFromCreate() = default;
  };

 public:
  HelperImpl(OnlyFromCreate, Platform& outside);
  /// Builds the core: components, stored state, capability probe, crash recovery queued, power
  /// observer, SIGABRT trap. Main thread.
  static std::shared_ptr<HelperImpl> create(Platform& outside);
  ~HelperImpl() override = default;

  void ping(PidReply reply) override;
  void capabilities(DataReply reply) override EXCLUDES(capabilitiesLock);
  void setChargeLimit(std::uint8_t limit, Reply reply) override EXCLUDES(smcQueue, stateLock);
  void clearChargeLimit(Reply reply) override EXCLUDES(smcQueue, stateLock);
  void forceDischarge(bool enable, Reply reply) override EXCLUDES(smcQueue, stateLock);
  void setClamshellKeepAwake(bool enabled, Reply reply) override EXCLUDES(smcQueue, stateLock);
  void releaseLimitUntilFullThenRestore(Reply reply) override EXCLUDES(smcQueue, stateLock);
  void cancelTopUp(Reply reply) override EXCLUDES(smcQueue, stateLock);
  void getState(DataReply reply) override EXCLUDES(stateLock);
  void resetAllSMCKeys(Reply reply) override EXCLUDES(smcQueue, stateLock);
  void quit() override;

  /// One accepted connection more. Any thread.
  void clientDidConnect();
  /// One accepted connection less. Any thread.
  void clientDidDisconnect();
  /// Restores the hardware, waiting 0.5 s at most, and ends the process with status 0. Any thread
  /// but smcQueue.
  [[noreturn]] void shutdownGracefully();

 private:
  // Boot
  void boot();
  void recoverFromCrash() REQUIRES(smcQueue);
  void installPowerObserver();
  void installAbortTrap();

  // Core
  /// Posts `work(core)` to smcQueue; when the core is gone by then, `gone()` runs instead.
  template <class Work, class Gone = void (*)()>
  void submit(Work work, Gone gone = [] {}) {
    smcQueue.async(
        [weak = weak_from_this(), work = std::move(work), gone = std::move(gone)]() mutable {
          if (const std::shared_ptr<HelperImpl> core = weak.lock()) {
            work(*core);
          } else {
            gone();
          }
        });
  }
  /// The same for a command: when the core is gone, the reply is (false, none).
  template <class Work>
  void submitCommand(Reply reply, Work work) {
    auto held = std::make_shared<Reply>(std::move(reply));
    submit(
        [held, work = std::move(work)](HelperImpl& self) mutable { work(self, std::move(*held)); },
        [held] { (*held)(false, std::nullopt); });
  }
  HelperCapabilities currentCapabilities() EXCLUDES(capabilitiesLock);
  HelperCapabilities probeInPlace() REQUIRES(capabilitiesLock) NO_THREAD_SAFETY_ANALYSIS;
  CallerIdentity currentCallerIdentity() const;
  template <class Field>
  Field stateField(Field HelperState::* field) EXCLUDES(stateLock) {
    const ScopedLock held(stateLock);
    return state.*field;
  }
  HelperState stateCopy() EXCLUDES(stateLock);
  std::uint64_t supersedeTopOff() EXCLUDES(topOffGenerationLock);
  void stopPollingLoop() REQUIRES(smcQueue);
  void releaseDischargeAssertion() REQUIRES(smcQueue);

  // Charge limit
  void endAllActivity() EXCLUDES(stateLock);
  void persistCurrentState() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void revertToDurableState() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void recordWriteVerified(bool verified) REQUIRES(smcQueue) EXCLUDES(stateLock);

  // Enforcement
  void startPollingLoop(std::int64_t target) REQUIRES(smcQueue);
  void pollOnce(std::int64_t target) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void handChargingBack() REQUIRES(smcQueue) EXCLUDES(stateLock);
  struct GatePayload {
    ByteList tahoe;
    ByteList preTahoe;
    std::int64_t nativeLimit;
  };
  WriterResult writeGate(const HelperCapabilities& caps, const GatePayload& payload)
      REQUIRES(smcQueue);
  WriterResult writeChargingPause(const HelperCapabilities& caps) REQUIRES(smcQueue);
  WriterResult writeChargingResume(const HelperCapabilities& caps) REQUIRES(smcQueue);
  WriterResult writeNativeLimit(PowerUIChargeBackend& backend, std::int64_t target)
      REQUIRES(smcQueue);
  void reportEnforcement(std::string_view action, const WriterResult& result) REQUIRES(smcQueue);

  // Force discharge
  void startForceDischarge(const HelperCapabilities& caps, Reply reply) REQUIRES(smcQueue)
      EXCLUDES(stateLock);
  std::optional<ErrorObject> dischargeRefusal() REQUIRES(smcQueue) EXCLUDES(stateLock);
  WriterResult writeDischargeStartKeys(const HelperCapabilities& caps) REQUIRES(smcQueue);
  void stopForceDischarge(const HelperCapabilities& caps, Reply reply) REQUIRES(smcQueue)
      EXCLUDES(stateLock);
  void pauseIfAboveLimit(const HelperCapabilities& caps) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void watchDischarge(std::int64_t target) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void countUnreadableCapacity() REQUIRES(smcQueue) EXCLUDES(stateLock);
  std::optional<double> lidClosedSeconds(bool lidClosed) REQUIRES(smcQueue);
  void logVerdict(const DischargeFacts& facts, const DischargeVerdict& verdict) const;
  void stopForceDischargeInternal(DischargeStopReason reason) REQUIRES(smcQueue)
      EXCLUDES(stateLock);
  /// Releases the adapter-inflow inhibit with plain writes; the result of the last one.
  WriterResult writeDischargeStopKeys(const HelperCapabilities& caps) REQUIRES(smcQueue);

  // Readings: fresh on every call, none or false when unknown
  [[nodiscard]] std::optional<std::int64_t> currentBatteryCapacityPercent() const;
  [[nodiscard]] std::optional<std::int64_t> currentBatteryTemperatureCelsius() const;
  [[nodiscard]] std::optional<bool> externalPowerConnected() const;
  [[nodiscard]] bool isClamshellClosed() const;

  // Client presence
  void countClientIn() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void countClientOut() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void cancelClientReleaseTimer() REQUIRES(smcQueue);
  void startClientReleaseTimer() REQUIRES(smcQueue);
  void suspendEnforcementForNoClient() REQUIRES(smcQueue) EXCLUDES(stateLock);

  // Keep-awake
  void armClamshellKeepAwake(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void disarmOnRequest() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void setSleepDisabledOwnership(bool owned) EXCLUDES(stateLock);
  void disarmClamshellKeepAwake() REQUIRES(smcQueue) EXCLUDES(stateLock);

  // Sleep and wake
  void flushPreSleepPause() EXCLUDES(smcQueue);
  void pauseBeforeSleep() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void evaluateOnWake();

  // Top-off
  void startTopOff(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void scheduleTopOffRestoreLoop(std::uint64_t generation) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void topOffTick(std::uint64_t generation, std::int64_t& ticks, std::int64_t savedLimit)
      REQUIRES(smcQueue) EXCLUDES(stateLock);
  void endTopOffLoop() REQUIRES(smcQueue);
  void endTopOffNow() REQUIRES(smcQueue) EXCLUDES(stateLock);
  std::uint64_t currentTopOffGeneration() EXCLUDES(topOffGenerationLock);

  // Shutdown and reset
  void restoreBeforeExit() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void resetToDefaults() REQUIRES(smcQueue) EXCLUDES(stateLock);
  WriterResult restoreIfPresent(const ResetWrite& reset) REQUIRES(smcQueue);
  void releaseEverythingHeld() REQUIRES(smcQueue) EXCLUDES(stateLock);

  Platform platform;
  Logger log;
  SerialQueue smcQueue;
  SMCWriter writer GUARDED_BY(smcQueue);
  std::unique_ptr<PowerUIChargeBackend> nativeChargeBackend GUARDED_BY(smcQueue);
  HelperPersistence persistence GUARDED_BY(smcQueue);
  IOPMAssertionManager pmAssertions;
  ClamshellSleepController clamshellSleep GUARDED_BY(smcQueue);
  std::unique_ptr<SystemPowerObserver> powerObserver;  // set at the end of creation
  bool clamshellKeepAwakeArmed GUARDED_BY(smcQueue) = false;
  std::optional<Date> clamshellClosedAt GUARDED_BY(smcQueue);  // lid first seen closed while armed
  std::optional<std::int64_t> dischargeMinCapacitySeen GUARDED_BY(smcQueue);
  std::int64_t consecutiveNilCapacityReads GUARDED_BY(smcQueue) = 0;
  std::optional<std::string> lastEnforcementOutcome GUARDED_BY(smcQueue);
  Lock capabilitiesLock;
  std::optional<HelperCapabilities> cachedCapabilities GUARDED_BY(capabilitiesLock);
  Lock stateLock;
  HelperState state GUARDED_BY(stateLock);
  std::unique_ptr<TimerSource> pollingTimer GUARDED_BY(smcQueue);
  std::unique_ptr<TimerSource> topOffRestoreTimer GUARDED_BY(smcQueue);
  std::optional<IOPMAssertionID> dischargeAssertionID GUARDED_BY(smcQueue);
  std::int64_t activeClientCount GUARDED_BY(smcQueue) = 0;
  std::unique_ptr<TimerSource> clientReleaseTimer GUARDED_BY(smcQueue);
  std::unique_ptr<SignalSource> sigabrtSource;  // set at the end of creation
  Lock topOffGenerationLock;
  std::uint64_t topOffGeneration GUARDED_BY(topOffGenerationLock) = 0;
};

}  // namespace korvel
