#include "VirtualMac/InProcess/GatedPower.h"

#include <utility>

#include "VirtualMac/InProcess/FaultCodes.h"

namespace virtualmac {

// ---- assertions

korvel::KernReturn GatedPowerAssertions::createWithProperties(
    const korvel::PropertyValue& properties, std::uint32_t& id) {
  if (const auto fault = gate.enter(SeamCall::assertionCreate)) return kernCode(*fault);
  return process.createAssertion(properties, id);
}

korvel::KernReturn GatedPowerAssertions::release(std::uint32_t id) {
  if (const auto fault = gate.enter(SeamCall::assertionRelease)) return kernCode(*fault);
  return process.releaseAssertion(id);
}

// ---- settings

korvel::KernReturn GatedPowerSettings::setSystemPowerSetting(std::string_view key, bool value) {
  if (const auto fault = gate.enter(SeamCall::settingsSet)) return kernCode(*fault);
  return process.setSystemPowerSetting(key, value);
}

korvel::PropertyValue GatedPowerSettings::copySystemPowerSettings() {
  if (gate.enter(SeamCall::settingsCopy)) return {};
  return process.copySystemPowerSettings();
}

// ---- root power domain

GatedRootPowerDomain::GatedRootPowerDomain(CallGate& callGate, HelperProcess& owner,
                                           PostToMain post)
    : gate(callGate), process(owner) {
  process.rootDomain.setMessageHandler(
      [known = interests, post = std::move(post)](const PowerMessage& message) {
        post([known, message] {
          const auto found = known->find(message.notifier);
          if (found == known->end()) return;
          const Interest interest = found->second;
          interest.callback(interest.refcon, message.notifier, message.messageType,
                            static_cast<std::uintptr_t>(message.notificationID));
        });
      });
}

korvel::ConnectionRef GatedRootPowerDomain::registerForSystemPower(
    void* refcon, korvel::HandleRef& port, korvel::InterestCallback callback,
    korvel::ObjectRef& notifier) {
  if (gate.enter(SeamCall::powerRegister)) {
    notifier = 0;
    return 0;
  }
  const korvel::ConnectionRef rootPort = process.rootDomain.registerForSystemPower(port, notifier);
  if (rootPort != 0) interests->insert_or_assign(notifier, Interest{callback, refcon});
  return rootPort;
}

korvel::HandleRef GatedRootPowerDomain::notificationPortGetRunLoopSource(korvel::HandleRef port) {
  gate.enter(SeamCall::powerGetSource);
  return process.rootDomain.notificationPortGetRunLoopSource(port);
}

korvel::HandleRef GatedRootPowerDomain::mainRunLoop() {
  gate.enter(SeamCall::powerMainRunLoop);
  return process.rootDomain.mainRunLoop();
}

void GatedRootPowerDomain::runLoopAddSource(korvel::HandleRef runLoop, korvel::HandleRef source) {
  gate.enter(SeamCall::powerAddSource);
  process.rootDomain.runLoopAddSource(runLoop, source);
}

void GatedRootPowerDomain::runLoopRemoveSource(korvel::HandleRef runLoop,
                                               korvel::HandleRef source) {
  if (gate.enter(SeamCall::powerRemoveSource)) return;
  process.rootDomain.runLoopRemoveSource(runLoop, source);
}

korvel::KernReturn GatedRootPowerDomain::allowPowerChange(korvel::ConnectionRef rootPort,
                                                          std::intptr_t notificationID) {
  if (const auto fault = gate.enter(SeamCall::powerAllowChange)) return kernCode(*fault);
  return process.rootDomain.allowPowerChange(rootPort, notificationID);
}

korvel::KernReturn GatedRootPowerDomain::deregisterForSystemPower(korvel::ObjectRef& notifier) {
  interests->erase(notifier);
  if (gate.enter(SeamCall::powerDeregister)) {
    notifier = 0;
    return korvel::kernSuccess;
  }
  return process.rootDomain.deregisterForSystemPower(notifier);
}

korvel::KernReturn GatedRootPowerDomain::serviceClose(korvel::ConnectionRef rootPort) {
  if (gate.enter(SeamCall::powerServiceClose)) return korvel::kernSuccess;
  return process.rootDomain.serviceClose(rootPort);
}

void GatedRootPowerDomain::notificationPortDestroy(korvel::HandleRef port) {
  if (gate.enter(SeamCall::powerPortDestroy)) return;
  process.rootDomain.notificationPortDestroy(port);
}

}  // namespace virtualmac
