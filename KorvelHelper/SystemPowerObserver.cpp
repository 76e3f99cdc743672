#include "SystemPowerObserver.h"

#include <utility>

#include "Base/Trap.h"

namespace korvel {

SystemPowerObserver::SystemPowerObserver(RootPowerDomain& rootDomain, Logger logger,
                                         std::function<void()> willSleep,
                                         std::function<void()> didWake)
    : domain(rootDomain),
      log(logger),
      onWillSleep(std::move(willSleep)),
      onDidWake(std::move(didWake)),
      notificationRunLoop(rootDomain.mainRunLoop()) {}

SystemPowerObserver::~SystemPowerObserver() { stop(); }

void SystemPowerObserver::start() {
  if (rootPort != 0 || notifyPort != 0) {
    log.log("SystemPowerObserver.start() called twice — ignoring redundant registration");
    return;
  }
  HandleRef port = 0;
  ObjectRef notifier = 0;
  const ConnectionRef root = domain.registerForSystemPower(this, port, &cCallback, notifier);
  if (root == 0 || port == 0) {
    log.fault("IORegisterForSystemPower failed — sleep/wake observer inactive");
    return;
  }
  rootPort = root;
  notifyPort = port;
  notifierObject = notifier;
  const HandleRef source = domain.notificationPortGetRunLoopSource(port);
  if (source == 0) trap("a registered notification port has no run-loop source");
  notificationSource = source;
  domain.runLoopAddSource(notificationRunLoop, source);
  log.log("system power observer registered rootPort=%{public}u", rootPort);
}

void SystemPowerObserver::stop() {
  if (notificationSource != 0) domain.runLoopRemoveSource(notificationRunLoop, notificationSource);
  if (notifierObject != 0) domain.deregisterForSystemPower(notifierObject);
  if (rootPort != 0) domain.serviceClose(rootPort);
  if (notifyPort != 0) domain.notificationPortDestroy(notifyPort);
  notificationSource = 0;
  notifyPort = 0;
  notifierObject = 0;
  rootPort = 0;
}

void SystemPowerObserver::cCallback(void* refcon, ObjectRef /*service*/, std::uint32_t messageType,
                                    std::uintptr_t messageArgument) {
  if (refcon == nullptr) return;
  static_cast<SystemPowerObserver*>(refcon)->handle(messageType, messageArgument);
}

void SystemPowerObserver::handle(std::uint32_t messageType, std::uintptr_t argument) {
  const auto acknowledge = [&] {
    domain.allowPowerChange(rootPort, static_cast<std::intptr_t>(argument));
  };
  switch (messageType) {
    case ioMessageSystemHasPoweredOn:
      log.log("kIOMessageSystemHasPoweredOn — re-evaluating charge gate");
      onDidWake();
      return;
    case ioMessageSystemWillSleep:
      log.log("kIOMessageSystemWillSleep — flushing pre-sleep SMC pause-write");
      // The system stays awake until this message is acknowledged: the work comes first.
      onWillSleep();
      acknowledge();
      return;
    case ioMessageCanSystemSleep:
      acknowledge();
      return;
    default:
      return;
  }
}

}  // namespace korvel
