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
  /// A message arrived; in the order in which they were sent.
  virtual void receive(ServiceMessage message) = 0;
  /// The client invalidated the connection, or died.
  virtual void clientGone() = 0;
  /// The connection broke off and may come back.
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

  /// A connection waits from now on, and is announced to whoever listens.
  void connect(const std::shared_ptr<ClientEnd>& client);
  /// Tells an acceptor of every connection that waits or comes; it takes the place of another.
  void listen(ConnectionAcceptor& by);
  /// Nobody listens any more; another acceptor's listening is left alone.
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

  /// Asks for the service; a helper that listens, now or later, decides.
  void connect();
  /// Sends a message, or keeps it until a helper accepts; over: its call fails.
  void send(ServiceMessage message);
  /// Ends the connection; `how` is for the journal.
  void disconnect(const std::string& how);
  /// What was not answered fails; the connection goes on.
  void interrupt();

  // From the helper's side
  void accepted(std::weak_ptr<ServerEnd> by);  ///< Sends what waited.
  void refused();                              ///< The listener said no: it is over.
  void cutOff(const std::string& why);         ///< The requirement is not met: it is over.
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
