// The hardware is put back: before the process ends, and on request while it goes on. The saved
// limit stays in either case; it is no longer enforced, not forgotten.

#include "Base/Trap.h"
#include "ChargeLimits.h"
#include "HelperImpl.h"
#include "Platform/Process.h"

namespace korvel {

namespace {

constexpr double shutdownWaitSeconds = 0.5;

}  // namespace

void HelperImpl::quit() {
  log.log("quit() received pid=%{public}d", platform.process.getpid());
  shutdownGracefully();
}

void HelperImpl::shutdownGracefully() {
  log.log("shutdownGracefully — restoring SMC before exit");
  submitAndWait(&HelperImpl::restoreBeforeExit, shutdownWaitSeconds);
  platform.process.exit(0);
  trap("the process went on after its exit");
}

void HelperImpl::restoreBeforeExit() {
  supersedeTopOff();
  stopTimer(pollingTimer);
  disarmClamshellKeepAwake();
  for (const ResetWrite& reset : resetWrites()) static_cast<void>(restoreIfPresent(reset));
  if (nativeChargeBackend) static_cast<void>(nativeChargeBackend->setLimit(ChargeLimits::none));
  releaseEverythingHeld();
}

void HelperImpl::resetAllSMCKeys(Reply reply) {
  log.log("resetAllSMCKeys %{public}s", callerText().c_str());
  submitCommand(std::move(reply), &HelperImpl::resetToDefaults);
}

void HelperImpl::resetToDefaults(Reply reply) {
  supersedeTopOff();
  stopTimer(pollingTimer);
  for (const ResetWrite& reset : resetWrites()) {
    if (const auto failed = restoreIfPresent(reset); !failed) {
      log.error("resetAll: %{public}s failed — %{public}s", std::string(reset.key).c_str(),
                failed.error().description().c_str());
    }
  }
  if (nativeChargeBackend) {
    if (const auto set = nativeChargeBackend->setLimit(ChargeLimits::none); !set) {
      log.error("resetAll: native limit restore failed — %{public}s",
                set.error().description().c_str());
    }
  }
  disarmClamshellKeepAwake();
  releaseEverythingHeld();
  reply(true, std::nullopt);
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
