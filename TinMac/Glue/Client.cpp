// A client's connections: each function is one call of a ClientLink.

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>

#include "Base/Trap.h"
#include "TinMac/Frameworks/BelowClient.h"
#include "TinMac/Glue/ClientLink.h"
#include "TinMac/Glue/Endpoints.h"
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

TinClient* open(TinPeer peer, const char* requirement, const TinClientEvents& events) {
  auto client = std::make_unique<TinClient>(std::move(peer),
                                            requirement == nullptr ? "" : requirement, events);
  const std::lock_guard lock(openClients().mutex);
  openClients().all.insert(client.get());
  client->start();
  return client.release();
}

std::optional<virtualmac::FrameSocket> connectTo(const std::string& path) {
  auto made = virtualmac::FrameSocket::connectTo(path);
  if (!made) return std::nullopt;
  return *std::move(made);
}

}  // namespace

extern "C" {

std::uint32_t tinRequirementParses(const char* requirement) {
  return tinmac::machineHost().requirementError(requirement) ? 0 : 1;
}

TinClient* tinClientOpen(const char* service, const char* requirement,
                         const TinClientEvents* events) {
  TinPeer peer{.connect = nullptr, .comesBack = true};
  const tinmac::KnownService& known = tinmac::service();
  if (known.name == service && !known.path.empty()) {
    peer.connect = [] { return connectTo(tinmac::service().path); };
  }
  return open(std::move(peer), requirement, *events);
}

TinClient* tinClientOpenWithin(std::uint32_t endpoint, const TinClientEvents* events) {
  const TinPeer peer{.connect = [endpoint] { return tinmac::connectToEndpoint(endpoint); },
                     .comesBack = false};
  return open(peer, nullptr, *events);
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
  // The listeners of this process hear soon what the others have told them.
  tinmac::awaitConnections(static_cast<std::size_t>(
      std::ranges::count_if(open, [](TinClient* client) { return client->isConnected(); })));
}

}  // extern "C"
