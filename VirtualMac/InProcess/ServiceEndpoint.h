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
  /// Messages arrive in the order in which they were sent.
  virtual void receive(ServiceMessage message) = 0;
  /// The client invalidated the connection, or died.
  virtual void clientGone() = 0;
  /// The connection broke off and may come back.
  virtual void clientInterrupted() = 0;
};

/// Accepts connections: the listener of a running helper.
class ConnectionAcceptor {
 public:
  virtual ~ConnectionAcceptor() = default;
  /// Called when one more connection waits to be taken.
  virtual void incoming() = 0;
};

/// The Mach service as launchd keeps it: it exists whether or not a helper runs. A connection waits
/// here until a helper takes it, so it survives a helper that dies before taking it.
class ServiceEndpoint {
 public:
  /// `demand` runs whenever somebody connects.
  explicit ServiceEndpoint(std::function<void()> demand) : onDemand(std::move(demand)) {}

  /// Queues a connection, and announces it to the acceptor if there is one.
  void connect(const std::shared_ptr<ClientEnd>& client);
  /// Announces every waiting and every later connection to `by`, which replaces another acceptor.
  void listen(ConnectionAcceptor& by);
  /// Stops announcing to `by`. Another acceptor is left in place.
  void stopListening(ConnectionAcceptor& by);
  /// Takes the connection that waited longest; null: none waits.
  std::shared_ptr<ClientEnd> take();

 private:
  std::function<void()> onDemand;
  ConnectionAcceptor* acceptor = nullptr;
  std::deque<std::shared_ptr<ClientEnd>> waiting;
};

/// The client's half of a connection. When the helper has gone, the next message connects again.
/// Once either side has invalidated the connection, every call fails.
class ClientEnd : public std::enable_shared_from_this<ClientEnd> {
 public:
  ClientEnd(ServiceEndpoint& service, Journal& record, std::string identityName,
            std::int32_t processID);

  /// Asks for the service. The helper that listens, now or later, accepts or refuses.
  void connect();
  /// Sends a message, or keeps it until a helper accepts. On an ended connection its call fails.
  void send(ServiceMessage message);
  /// Ends the connection; `how` is for the journal.
  void disconnect(const std::string& how);
  /// Fails the unanswered calls; the connection goes on.
  void interrupt();

  // Called from the helper's side
  void accepted(std::weak_ptr<ServerEnd> by);  ///< Sends the messages kept so far.
  void refused();                              ///< The listener refused: it is over.
  void cutOff(const std::string& why);         ///< The helper does not serve it: it is over.
  void helperGone();  ///< Pending calls fail; the connection may come back.
  /// A reply arrived for a call, or none ever will.
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

}  // namespace virtualmac
