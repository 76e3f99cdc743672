#include "VirtualMac/Machine/RootDomain.h"

#include <algorithm>

#include "VirtualMac/Machine/SMC.h"

namespace virtualmac {

namespace {

/// The main run loop's handle, and the low bytes that tell this interface's names apart.
constexpr korvel::HandleRef mainLoop = 0x17;
constexpr std::uint32_t rootPortSort = 0x1b;
constexpr std::uint32_t notifierSort = 0x1f;
constexpr korvel::HandleRef portSort = 0x23;
constexpr korvel::HandleRef sourceSort = 0x27;

}  // namespace

RootDomainClient::RootDomainClient(PowerManagement& manager, std::int32_t processID)
    : power(manager), pid(processID) {}

korvel::ConnectionRef RootDomainClient::registerForSystemPower(
    void* /*refcon*/, korvel::HandleRef& port, korvel::InterestCallback /*callback*/,
    korvel::ObjectRef& notifier) {
  notifier = 0;
  if (power.registrationFails) return 0;
  const std::uint32_t number = ++lastName << 8U;
  Registration added;
  added.rootPort = number | rootPortSort;
  added.notifier = number | notifierSort;
  added.port = number | portSort;
  added.source = number | sourceSort;
  port = added.port;
  notifier = added.notifier;
  registrations.push_back(added);
  power.addRegistration(pid, added.notifier,
                        [this](const PowerMessage& message) { arrive(message); });
  return added.rootPort;
}

void RootDomainClient::arrive(const PowerMessage& message) {
  for (Registration& each : registrations) {
    if (each.notifier != message.notifier) continue;
    if (each.attached && deliver) {
      deliver(message);
    } else {
      each.waiting.push_back(message);
    }
    return;
  }
}

korvel::HandleRef RootDomainClient::notificationPortGetRunLoopSource(korvel::HandleRef port) {
  for (const Registration& each : registrations) {
    if (port != 0 && each.port == port) return each.source;
  }
  return 0;
}

korvel::HandleRef RootDomainClient::mainRunLoop() { return mainLoop; }

void RootDomainClient::runLoopAddSource(korvel::HandleRef runLoop, korvel::HandleRef source) {
  if (runLoop != mainLoop) return;
  std::vector<PowerMessage> late;
  for (Registration& each : registrations) {
    if (each.source != source || each.port == 0) continue;
    each.attached = true;
    late.swap(each.waiting);
  }
  if (!deliver) return;
  for (const PowerMessage& message : late) deliver(message);
}

void RootDomainClient::runLoopRemoveSource(korvel::HandleRef runLoop, korvel::HandleRef source) {
  if (runLoop != mainLoop) return;
  for (Registration& each : registrations) {
    if (each.source == source) each.attached = false;
  }
}

korvel::KernReturn RootDomainClient::allowPowerChange(korvel::ConnectionRef rootPort,
                                                      std::intptr_t notificationID) {
  for (const Registration& each : registrations) {
    if (rootPort == 0 || each.rootPort != rootPort) continue;
    return power.acknowledge(pid, each.notifier, notificationID);
  }
  return machSendInvalidDest;
}

korvel::KernReturn RootDomainClient::deregisterForSystemPower(korvel::ObjectRef& notifier) {
  const korvel::ObjectRef name = notifier;
  notifier = 0;
  for (Registration& each : registrations) {
    if (name == 0 || each.notifier != name) continue;
    power.removeRegistration(pid, name);
    each.notifier = 0;
    forgetSpent();
    return korvel::kernSuccess;
  }
  return machSendInvalidDest;
}

korvel::KernReturn RootDomainClient::serviceClose(korvel::ConnectionRef rootPort) {
  for (Registration& each : registrations) {
    if (rootPort == 0 || each.rootPort != rootPort) continue;
    each.rootPort = 0;
    forgetSpent();
    return korvel::kernSuccess;
  }
  return machSendInvalidDest;
}

void RootDomainClient::notificationPortDestroy(korvel::HandleRef port) {
  for (Registration& each : registrations) {
    if (port == 0 || each.port != port) continue;
    each.port = 0;
    each.attached = false;
    each.waiting.clear();
    break;
  }
  forgetSpent();
}

void RootDomainClient::forgetSpent() {
  std::erase_if(registrations, [](const Registration& each) {
    return each.rootPort == 0 && each.notifier == 0 && each.port == 0;
  });
}

std::size_t RootDomainClient::liveObjects() const {
  std::size_t count = 0;
  for (const Registration& each : registrations) {
    count += (each.rootPort != 0 ? 1U : 0U) + (each.notifier != 0 ? 1U : 0U) +
             (each.port != 0 ? 1U : 0U);
  }
  return count;
}

void RootDomainClient::dropAll() {
  for (const Registration& each : registrations) {
    if (each.notifier != 0) power.removeRegistration(pid, each.notifier);
  }
  registrations.clear();
}

}  // namespace virtualmac
