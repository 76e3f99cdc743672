#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VirtualMac/InProcess/AppClient.h"
#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

class ClientEnd;

/// One message on its way to the helper.
struct ServiceMessage {
  AppCallRef call;
  std::uint8_t argument = 0;
};

/// The helper's half of one connection, as the client's half knows it.
class ServerEnd {
 public:
  virtual ~ServerEnd() = default;
  virtual void receive(ServiceMessage message) = 0;
  /// The client invalidated the connection, or died.
  virtual void clientGone() = 0;
  virtual void clientInterrupted() = 0;
};

/// Who accepts connections; a running helper's listener.
class ConnectionAcceptor {
 public:
  virtual ~ConnectionAcceptor() = default;
  /// One more connection waits to be taken.
  virtual void incoming() = 0;
};

/// The Mach service as launchd keeps it: it exists whether or not a helper runs. A connection waits
/// here until a helper takes it, so it outlives a helper that dies before it does.
class ServiceEndpoint {
 public:
  /// `demand` runs whenever somebody connects.
  explicit ServiceEndpoint(std::function<void()> demand) : onDemand(std::move(demand)) {}

  void connect(const std::shared_ptr<ClientEnd>& client);
  void listen(ConnectionAcceptor& by);
  void stopListening(ConnectionAcceptor& by);
  /// The one that waited longest; null: none.
  std::shared_ptr<ClientEnd> take();

 private:
  std::function<void()> onDemand;
  ConnectionAcceptor* acceptor = nullptr;
  std::deque<std::shared_ptr<ClientEnd>> waiting;
};

/// The client's half of a connection. The helper may go and come back; then the next message
/// connects again. After an invalidation, from whichever side, every call fails.
class ClientEnd : public std::enable_shared_from_this<ClientEnd> {
 public:
  ClientEnd(ServiceEndpoint& service, Journal& record, std::string identityName,
            std::int32_t processID);

  void connect();
  void send(ServiceMessage message);
  void disconnect(const std::string& how);
  void interrupt();

  // From the helper's side
  void accepted(std::weak_ptr<ServerEnd> by);  ///< Sends what waited.
  void refused();
  void cutOff(const std::string& why);
  void helperGone();  ///< Pending calls fail; the connection may come back.
  void answered(const AppCallRef& call);
  void failed(const AppCallRef& call, const std::string& why);

  [[nodiscard]] bool isConnected() const { return !over && !server.expired(); }
  [[nodiscard]] bool isOver() const { return over; }
  [[nodiscard]] const std::string& identity() const { return identityLabel; }
  [[nodiscard]] std::int32_t pid() const { return id; }

 private:
  void journal(const std::string& text);
  void failAll(const std::string& why);
  void end(const std::string& why);

  ServiceEndpoint& endpoint;
  Journal& record;
  std::string identityLabel;
  std::int32_t id;
  bool requested = false;  ///< Waits for a listener's decision.
  bool over = false;
  std::weak_ptr<ServerEnd> server;
  std::vector<ServiceMessage> unsent;
  std::vector<AppCallRef> pending;
};

/// "setChargeLimit" for "setChargeLimit:reply:", "ping" for "pingWithReply:".
std::string operationName(std::string_view selector);

}  // namespace virtualmac
