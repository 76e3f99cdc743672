#pragma once

#include <array>
#include <asio/local/stream_protocol.hpp>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/XPCConnection.h"
#include "VirtualMac/Remote/FrameSocket.h"
#include "VirtualMac/Remote/HelperHost.h"
#include "VirtualMac/Remote/XPCMessages.h"

namespace virtualmac {

/// One client of the helper's service; see ServiceListener. The accepting thread sets it up. From
/// `resume` on the connection's own thread reads messages and runs handlers, and may be done with
/// all of that before the delegate has returned. The interruption handler is never called, since a
/// broken socket does not come back.
class ServiceConnection final : public korvel::XPCConnection,
                                public std::enable_shared_from_this<ServiceConnection> {
 public:
  using Socket = asio::local::stream_protocol::socket;

  ServiceConnection(Socket accepted, HelperHost& machineHost);
  ~ServiceConnection() override;

  void setExportedInterface(const korvel::XPCInterface& interface) override;
  void setExportedObject(std::shared_ptr<korvel::KorvelHelperProtocol> object) override;
  bool setCodeSigningRequirement(const std::string& requirement) override;
  void setInvalidationHandler(std::function<void()> handler) override;
  void setInterruptionHandler(std::function<void()> handler) override;
  void resume() override;

  /// On the thread that accepts.
  [[nodiscard]] bool isResumed() const { return resumed; }
  /// Drops a connection that was not accepted. On the thread that accepts.
  void refuse();
  /// Sends the answer to a call. Any thread; does nothing when the connection is over.
  void reply(const korvel::Operation& operation, std::uint32_t ticket,
             std::vector<XPCValue> values);

  /// The pid of the peer whose call runs on this thread; none outside a call.
  static std::optional<std::int32_t> currentPid();

 private:
  void tell(std::string text);
  /// Ends the connection if a fault of the machine ends new ones at this moment.
  void breakAt(ConnectionBreak moment);
  void read();
  void takeMessages();
  void take(const std::string& message);
  bool isAdmitted();
  [[nodiscard]] bool peerHasHungUp();
  void deliver(const korvel::Operation& operation, std::uint8_t argument, std::uint32_t ticket);
  void sendReply(const korvel::Operation& operation, std::uint32_t ticket,
                 const std::vector<XPCValue>& values);
  void writeNext();
  void end(const std::string& reason);

  Socket socket;
  HelperHost& host;
  std::int32_t pid = 0;
  std::optional<ConnectionBreak> breaks;
  korvel::XPCInterface exportedInterface;
  std::shared_ptr<korvel::KorvelHelperProtocol> exportedObject;
  std::string codeRequirement;
  std::function<void()> invalidationHandler;
  std::function<void()> interruptionHandler;
  bool resumed = false;
  bool admitted = false;
  bool over = false;
  bool reading = false;
  int unanswered = 0;  ///< Calls whose reply was not sent yet.
  std::array<char, 4096> chunk{};
  std::string incoming;  ///< Messages that were not taken yet.
  std::deque<std::string> outgoing;
};

}  // namespace virtualmac
