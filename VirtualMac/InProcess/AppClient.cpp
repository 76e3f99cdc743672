#include "VirtualMac/InProcess/AppClient.h"

#include <utility>

#include "Operations.h"
#include "VirtualMac/InProcess/AppLink.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

AppClient::AppClient(World& owner, std::unique_ptr<Link> connection)
    : world(owner), link(std::move(connection)) {}

AppClient::~AppClient() { link->end->disconnect("disconnects"); }

AppCallRef AppClient::send(std::string_view selector, std::uint8_t argument) {
  auto call = std::make_shared<AppCall>();
  call->selector = selector;
  made.push_back(call);
  link->end->send(ServiceMessage{call, argument});
  const auto* operation = korvel::operationWith(&korvel::Operation::selector, selector);
  const bool oneWay = operation != nullptr && operation->answer == korvel::OperationAnswer::None;
  if (oneWay && !call->failed) link->end->answered(call);
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
