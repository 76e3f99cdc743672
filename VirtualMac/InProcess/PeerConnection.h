#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "VirtualMac/InProcess/InProcessXPC.h"
#include "VirtualMac/Machine/Requirement.h"

namespace virtualmac {

/// The helper's half of one connection. Messages are delivered one at a time, in order, on the
/// connection's own thread; its handlers run there too, after the messages before them. So they may
/// run beside the thread that accepts it: as soon as the schedule says so after resume, or when the
/// machine's fault does.
class PeerConnection final : public korvel::XPCConnection,
                             public ServerEnd,
                             public std::enable_shared_from_this<PeerConnection> {
 public:
  PeerConnection(InProcessXPC& service, std::shared_ptr<ClientEnd> other);

  // The helper's
  void setExportedInterface(const korvel::XPCInterface& interface) override;
  void setExportedObject(std::shared_ptr<korvel::KorvelHelperProtocol> object) override;
  bool setCodeSigningRequirement(const std::string& requirement) override;
  void setInvalidationHandler(std::function<void()> handler) override;
  void setInterruptionHandler(std::function<void()> handler) override;
  void resume() override;

  // The client's
  void receive(ServiceMessage message) override;
  void clientGone() override;
  void clientInterrupted() override;

  // The process's
  void refuse();       ///< The listener's delegate said no.
  void processGone();  ///< Lets go of everything, without another handler.
  [[nodiscard]] const Lane* lane() const { return thread.get(); }
  /// The client's process, while one of its messages is being delivered.
  [[nodiscard]] std::optional<std::int32_t> deliveringFor() const { return delivering; }

 private:
  void deliver(const ServiceMessage& message);
  [[nodiscard]] bool peerIsAdmitted();
  void call(const ServiceMessage& message);
  /// Breaks here if the machine's new connections do at this moment.
  void breakAt(ConnectionBreak moment);
  void awaitEnd();
  void invalidate();

  InProcessXPC& service;
  std::shared_ptr<ClientEnd> client;
  std::shared_ptr<Lane> thread;
  korvel::XPCInterface interface;
  std::shared_ptr<korvel::KorvelHelperProtocol> exported;
  std::optional<Requirement> requirement;
  std::function<void()> invalidationHandler;
  std::function<void()> interruptionHandler;
  std::optional<std::int32_t> delivering;
  bool resumed = false;
  bool invalid = false;
  bool ended = false;        ///< Invalid, and the handler has returned.
  Lane* awaiting = nullptr;  ///< Goes on when it has ended.
};

}  // namespace virtualmac
