#include "VirtualMac/InProcess/AppClient.h"

#include <utility>

#include "KorvelHelperProtocol.h"
#include "VirtualMac/InProcess/AppLink.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

namespace selectors = korvel::KorvelHelperSelector;

AppClient::AppClient(World& owner, std::unique_ptr<Link> connection)
    : world(owner), link(std::move(connection)) {}

AppClient::~AppClient() { link->end->disconnect("disconnects"); }

AppCallRef AppClient::start(std::string_view selector, std::uint8_t argument) {
  auto call = std::make_shared<AppCall>();
  call->selector = selector;
  made.push_back(call);
  link->end->send(ServiceMessage{call, argument});
  return call;
}

AppCallRef AppClient::ping() { return start(selectors::ping, 0); }
AppCallRef AppClient::capabilities() { return start(selectors::capabilities, 0); }
AppCallRef AppClient::setChargeLimit(std::uint8_t limit) {
  return start(selectors::setChargeLimit, limit);
}
AppCallRef AppClient::clearChargeLimit() { return start(selectors::clearChargeLimit, 0); }
AppCallRef AppClient::forceDischarge(bool enable) {
  return start(selectors::forceDischarge, enable ? 1 : 0);
}
AppCallRef AppClient::setClamshellKeepAwake(bool enabled) {
  return start(selectors::setClamshellKeepAwake, enabled ? 1 : 0);
}
AppCallRef AppClient::releaseLimitUntilFullThenRestore() {
  return start(selectors::releaseLimitUntilFullThenRestore, 0);
}
AppCallRef AppClient::cancelTopUp() { return start(selectors::cancelTopUp, 0); }
AppCallRef AppClient::getState() { return start(selectors::getState, 0); }
AppCallRef AppClient::resetAllSMCKeys() { return start(selectors::resetAllSMCKeys, 0); }
AppCallRef AppClient::send(std::string_view selector, std::uint8_t argument) {
  return start(selector, argument);
}

AppCallRef AppClient::quit() {
  AppCallRef call = start(selectors::quit, 0);
  // One-way: nothing will come back.
  if (!call->failed) link->end->answered(call);
  return call;
}

const AppCall& AppClient::await(const AppCallRef& call, double limitSeconds) {
  world.runUntil([&call] { return call->over(); }, limitSeconds);
  return *call;
}

std::optional<korvel::HelperState> AppClient::state() {
  const AppCall& call = await(getState());
  if (!call.answered) return std::nullopt;
  auto decoded = korvel::decodeStateReply(call.data);
  if (!decoded) return std::nullopt;
  return std::move(*decoded);
}

std::optional<korvel::HelperCapabilities> AppClient::capabilityRecord() {
  const AppCall& call = await(capabilities());
  if (!call.answered) return std::nullopt;
  auto decoded = korvel::decodeCapabilities(call.data);
  if (!decoded) return std::nullopt;
  return *decoded;
}

void AppClient::disconnect() { link->end->disconnect("disconnects"); }

void AppClient::kill() {
  world.machine().signatures.removePid(pid());
  link->end->disconnect("dies");
}

void AppClient::interrupt() { link->end->interrupt(); }

bool AppClient::connected() const { return link->end->isConnected(); }

std::int32_t AppClient::pid() const { return link->end->pid(); }

}  // namespace virtualmac
