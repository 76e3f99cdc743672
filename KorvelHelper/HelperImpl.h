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
/// The end. The last client leaving suspends enforcement after a grace period; sleep stops a
/// discharge and pauses the gate; shutdown restores every key, then the process exits.
///
/// Threads. XPC threads read copies under a lock and post; the main thread posts and waits, 0.1 s
/// before sleep and 0.5 s at shutdown at most. Locks guard one field each, are held for a copy or
/// an assignment, and never two together. Posted work holds the core weakly: once it is gone, a
/// command replies (false, none) and does nothing else.
///
/// Failure. A failed hardware call is a value that becomes a reply or a log line; a failed state
/// write is only logged. Nothing but a programming error stops the process.
class HelperImpl final : public KorvelHelperProtocol,
                         public std::enable_shared_from_this<HelperImpl> {
 public:
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

  /// Count one accepted connection in and out. Any thread.
  void clientDidConnect();
  void clientDidDisconnect();
  /// Restores the hardware, waiting 0.5 s at most, and ends the process with status 0. Any thread
  /// but smcQueue.
  [[noreturn]] void shutdownGracefully();

 private:
  explicit HelperImpl(Platform& outside);

  // Boot
  void boot();
  void recoverFromCrash() REQUIRES(smcQueue);
  void installPowerObserver();
  void installAbortTrap();

  // Core. Work is a member that REQUIRES(smcQueue). The compiler does not check a call through a
  // member pointer, so post and startTimer check the queue when the work runs.
  using Work = void (HelperImpl::*)();
  /// Posts `body(core)` to smcQueue; null when the core is gone by then.
  template <class Body>
  void post(Body body) {
    smcQueue.async([weak = weak_from_this(), body = std::move(body)]() mutable {
      const std::shared_ptr<HelperImpl> core = weak.lock();
      if (core) core->smcQueue.assertCurrent();
      body(core.get());
    });
  }
  void submit(Work work);
  /// Posts work and waits until it has run, `seconds` at most.
  void submitAndWait(Work work, double seconds) EXCLUDES(smcQueue);
  /// Posts `work(arguments..., reply)`; the reply is (false, none) when the core is gone by then.
  template <class Command, class... Arguments>
  void submitCommand(Reply reply, Command work, Arguments... arguments) {
    post([work, arguments..., reply = std::move(reply)](HelperImpl* core) mutable {
      if (core == nullptr) return reply(false, std::nullopt);
      (core->*work)(arguments..., std::move(reply));
    });
  }
  /// Puts a timer in the place of the one in `slot`: it runs work after `firstSeconds` and then
  /// every `intervalSeconds`; none: once.
  void startTimer(std::unique_ptr<TimerSource>& slot, double firstSeconds,
                  std::optional<double> intervalSeconds, Work work) REQUIRES(smcQueue);
  static void stopTimer(std::unique_ptr<TimerSource>& slot);
  HelperCapabilities currentCapabilities() EXCLUDES(capabilitiesLock);
  HelperCapabilities probeInPlace() REQUIRES(capabilitiesLock) NO_THREAD_SAFETY_ANALYSIS;
  CallerIdentity currentCallerIdentity() const;
  std::string callerText() const;
  template <class Field>
  Field stateField(Field HelperState::* field) EXCLUDES(stateLock) {
    const ScopedLock held(stateLock);
    return state.*field;
  }
  template <class Change>
  void changeState(Change change) EXCLUDES(stateLock) {
    const ScopedLock held(stateLock);
    change(state);
  }
  HelperState stateCopy() EXCLUDES(stateLock);
  std::uint64_t supersedeTopOff() EXCLUDES(topOffGenerationLock);
  void releaseDischargeAssertion() REQUIRES(smcQueue);

  // Charge limit
  void applyChargeLimit(std::uint8_t limit, Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void clearLimit(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void endAllActivity() EXCLUDES(stateLock);
  void persistCurrentState() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void revertToDurableState() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void recordWriteVerified(bool verified) REQUIRES(smcQueue) EXCLUDES(stateLock);

  // Enforcement
  void startPollingLoop(std::int64_t target) REQUIRES(smcQueue);
  void pollOnce() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void handChargingBack() REQUIRES(smcQueue) EXCLUDES(stateLock);
  struct GatePayload;
  WriterResult writeGate(const HelperCapabilities& caps, const GatePayload& payload)
      REQUIRES(smcQueue);
  WriterResult writeChargingPause(const HelperCapabilities& caps) REQUIRES(smcQueue);
  WriterResult writeChargingResume(const HelperCapabilities& caps) REQUIRES(smcQueue);
  WriterResult writeNativeLimit(PowerUIChargeBackend& backend, std::int64_t target)
      REQUIRES(smcQueue);
  void reportEnforcement(std::string_view action, const WriterResult& result) REQUIRES(smcQueue);

  // Force discharge
  void startForceDischarge(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  std::optional<ErrorObject> dischargeRefusal() REQUIRES(smcQueue) EXCLUDES(stateLock);
  WriterResult writeDischargeStartKeys(const HelperCapabilities& caps) REQUIRES(smcQueue);
  void stopForceDischarge(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void pauseIfAboveLimit(const HelperCapabilities& caps) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void watchDischarge() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void countUnreadableCapacity() REQUIRES(smcQueue) EXCLUDES(stateLock);
  std::optional<double> lidClosedSeconds(bool lidClosed) REQUIRES(smcQueue);
  void logVerdict(const DischargeFacts& facts, const DischargeVerdict& verdict) const;
  void stopForceDischargeInternal(DischargeStopReason reason) REQUIRES(smcQueue)
      EXCLUDES(stateLock);
  /// Releases the adapter-inflow inhibit with plain writes; the result of the last one.
  WriterResult writeDischargeStopKeys(const HelperCapabilities& caps) REQUIRES(smcQueue);

  // Client presence
  void countClientIn() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void countClientOut() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void clientReleaseDue() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void suspendEnforcementForNoClient() REQUIRES(smcQueue) EXCLUDES(stateLock);

  // Keep-awake
  void armClamshellKeepAwake(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void disarmOnRequest(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void disarmClamshellKeepAwake() REQUIRES(smcQueue) EXCLUDES(stateLock);

  // Sleep and wake
  void flushPreSleepPause() EXCLUDES(smcQueue);
  void pauseBeforeSleep() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void evaluateOnWake() REQUIRES(smcQueue) EXCLUDES(stateLock);

  // Top-off
  void startTopOff(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  void topOffTick() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void endTopOff(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
  std::uint64_t currentTopOffGeneration() EXCLUDES(topOffGenerationLock);

  // Shutdown and reset
  void restoreBeforeExit() REQUIRES(smcQueue) EXCLUDES(stateLock);
  void resetToDefaults(Reply reply) REQUIRES(smcQueue) EXCLUDES(stateLock);
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
  std::int64_t pollingTarget GUARDED_BY(smcQueue) = 0;
  std::unique_ptr<TimerSource> topOffRestoreTimer GUARDED_BY(smcQueue);
  std::uint64_t topOffLoopGeneration GUARDED_BY(smcQueue) = 0;
  std::int64_t topOffSavedLimit GUARDED_BY(smcQueue) = 0;
  std::int64_t topOffTicks GUARDED_BY(smcQueue) = 0;
  std::optional<IOPMAssertionID> dischargeAssertionID GUARDED_BY(smcQueue);
  std::int64_t activeClientCount GUARDED_BY(smcQueue) = 0;
  std::unique_ptr<TimerSource> clientReleaseTimer GUARDED_BY(smcQueue);
  std::unique_ptr<SignalSource> sigabrtSource;  // set at the end of creation
  Lock topOffGenerationLock;
  std::uint64_t topOffGeneration GUARDED_BY(topOffGenerationLock) = 0;
};

}  // namespace korvel
