// Putting everything back: before the process ends, and on request while it goes on. The saved
// limit stays in either case; it is no longer enforced, not forgotten.

#include "Base/Trap.h"
#include "HelperImpl.h"
#include "Platform/Process.h"

namespace korvel {

namespace {

constexpr double shutdownWaitSeconds = 0.5;
constexpr std::int64_t nativeLimitNone = 100;

}  // namespace

void HelperImpl::quit() {
  log.log("quit() received pid=%{public}d", platform.process.getpid());
  shutdownGracefully();
}

void HelperImpl::shutdownGracefully() {
  log.log("shutdownGracefully — restoring SMC before exit");
  const std::shared_ptr<DispatchGroup> group = platform.dispatch.makeGroup();
  group->enter();
  submit(
      [group](HelperImpl& self) {
        self.smcQueue.assertCurrent();
        self.restoreBeforeExit();
        group->leave();
      },
      [group] { group->leave(); });
  static_cast<void>(group->wait(shutdownWaitSeconds));
  platform.process.exit(0);
  trap("the process went on after its exit");
}

void HelperImpl::restoreBeforeExit() {
  supersedeTopOff();
  stopPollingLoop();
  disarmClamshellKeepAwake();
  for (const ResetWrite& reset : resetWrites()) static_cast<void>(restoreIfPresent(reset));
  if (nativeChargeBackend) static_cast<void>(nativeChargeBackend->setLimit(nativeLimitNone));
  releaseEverythingHeld();
}

void HelperImpl::resetAllSMCKeys(Reply reply) {
  const CallerIdentity caller = currentCallerIdentity();
  log.log("resetAllSMCKeys pid=%{public}d signingID=%{public}s team=%{public}s cdHash=%{public}s",
          caller.pid, caller.signingID.c_str(), caller.teamID.c_str(), caller.cdHashHex.c_str());
  submitCommand(std::move(reply), [](HelperImpl& self, Reply answer) {
    self.smcQueue.assertCurrent();
    self.resetToDefaults();
    answer(true, std::nullopt);
  });
}

void HelperImpl::resetToDefaults() {
  supersedeTopOff();
  stopPollingLoop();
  for (const ResetWrite& reset : resetWrites()) {
    if (const auto failed = restoreIfPresent(reset); !failed) {
      log.error("resetAll: %{public}s failed — %{public}s", std::string(reset.key).c_str(),
                failed.error().description().c_str());
    }
  }
  if (nativeChargeBackend) {
    if (const auto set = nativeChargeBackend->setLimit(nativeLimitNone); !set) {
      log.error("resetAll: native limit restore failed — %{public}s",
                set.error().description().c_str());
    }
  }
  disarmClamshellKeepAwake();
  releaseEverythingHeld();
}

WriterResult HelperImpl::restoreIfPresent(const ResetWrite& reset) {
  if (!writer.isPresent(reset.key)) return {};
  return writer.writeKey(reset.key, reset.bytes);
}

void HelperImpl::releaseEverythingHeld() {
  releaseDischargeAssertion();
  pmAssertions.releaseAll();
  endAllActivity();
  persistCurrentState();
}

}  // namespace korvel
