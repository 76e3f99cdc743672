// A client's connections: each function is one call of a ClientLink.

#include <memory>
#include <string_view>

#include "Base/Trap.h"
#include "TinMac/Frameworks/BelowClient.h"
#include "TinMac/Glue/ClientLink.h"
#include "TinMac/Glue/Machine.h"
#include "TinMac/Glue/Outgoing.h"
#include "VirtualMac/Remote/HelperHost.h"

namespace {

/// Every open connection, so that the end of the process finds them.
struct OpenClients {
  std::mutex mutex;
  std::set<TinClient*> all;
  bool processEnds = false;
};

OpenClients& openClients() {
  static auto& clients = *new OpenClients;
  return clients;
}

}  // namespace

extern "C" {

std::uint32_t tinRequirementParses(const char* requirement) {
  return tinmac::machineHost().requirementError(requirement) ? 0 : 1;
}

TinClient* tinClientOpen(const char* service, const char* requirement,
                         const TinClientEvents* events) {
  const bool isKnown = tinmac::service().name == service;
  auto client = std::make_unique<TinClient>(isKnown ? tinmac::service().path : "",
                                            requirement == nullptr ? "" : requirement, *events);
  const std::lock_guard lock(openClients().mutex);
  openClients().all.insert(client.get());
  client->start();
  return client.release();
}

std::uint32_t tinClientSend(TinClient* client, std::uint32_t ticket, const char* selector,
                            std::uint32_t unsent) {
  const korvel::PropertyValue arguments = tinmac::takeOutgoingValue();
  if (arguments.array() == nullptr) korvel::trap("a message's arguments are no array");
  return client->send({ticket, selector, *arguments.array()}, unsent) ? 1 : 0;
}

void tinClientInvalidate(TinClient* client) { client->end(TinClientInvalid); }

void tinClientClose(TinClient* client) {
  const std::lock_guard lock(openClients().mutex);
  if (openClients().processEnds) return;
  openClients().all.erase(client);
  client->close();
}

void tinAnswerTell(const TinAnswer* answer, const TinValueSink* sink) {
  for (const virtualmac::XPCValue& value : answer->values) {
    if (const auto* error = std::get_if<korvel::ErrorObject>(&value)) {
      tinmac::tell(*error, *sink);
    } else {
      tinmac::tell(std::get<korvel::PropertyValue>(value), *sink);
    }
  }
}

void tinClientsQuiet() {
  std::set<TinClient*> open;
  {
    const std::lock_guard lock(openClients().mutex);
    openClients().processEnds = true;
    open = openClients().all;
  }
  for (TinClient* client : open) client->beQuiet();
}

}  // extern "C"
