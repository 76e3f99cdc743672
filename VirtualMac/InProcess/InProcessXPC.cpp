#include "VirtualMac/InProcess/InProcessXPC.h"

#include <utility>

#include "VirtualMac/InProcess/PeerConnection.h"

namespace virtualmac {

/// The part of a listener that the connections on their way to it share, as they may outlive it.
class ListenerCore final : public ConnectionAcceptor,
                           public std::enable_shared_from_this<ListenerCore> {
 public:
  explicit ListenerCore(InProcessXPC& owner) : service(owner) {}

  void incoming() override {
    service.around.scheduler.post(*service.listenerLane,
                                  [core = shared_from_this()] { core->considerNext(); });
  }

  InProcessXPC& service;
  std::weak_ptr<korvel::XPCListenerDelegate> delegate;
  bool closed = false;

 private:
  void considerNext() {
    if (closed) return;
    const std::shared_ptr<ClientEnd> client = service.around.endpoint.take();
    if (client == nullptr) return;
    // A client that has gone meanwhile gets one too: the helper still sees it come and go.
    const auto connection = std::make_shared<PeerConnection>(service, client);
    const std::shared_ptr<korvel::XPCListenerDelegate> judge = delegate.lock();
    service.connections.push_back(connection);
    const ScheduleObservers& observers = service.around.observers;
    observers.tell(&ScheduleObserver::connectionOffered, service.around.process, client->pid());
    const bool accepted = judge && judge->shouldAcceptNewConnection(*connection);
    observers.tell(&ScheduleObserver::connectionDecided, service.around.process, accepted);
    if (accepted) return;
    std::erase(service.connections, connection);
    connection->refuse();
  }
};

/// One listener. It offers each new connection to the delegate, on the listener's thread.
class InProcessListener final : public korvel::XPCListener {
 public:
  InProcessListener(InProcessXPC& owner, std::string_view machServiceName)
      : core(std::make_shared<ListenerCore>(owner)),
        serves(machServiceName == owner.around.serviceName) {}
  ~InProcessListener() override {
    core->closed = true;
    core->service.around.endpoint.stopListening(*core);
  }

  void setDelegate(const std::shared_ptr<korvel::XPCListenerDelegate>& newDelegate) override {
    core->delegate = newDelegate;
  }

  void resume() override {
    if (!serves) {
      core->service.around.reportViolation("a listener for a service that launchd does not know");
      return;
    }
    core->service.around.endpoint.listen(*core);
    core->service.around.scheduler.mayInterrupt();
  }

 private:
  std::shared_ptr<ListenerCore> core;
  bool serves;
};

InProcessXPC::InProcessXPC(XPCSurroundings surroundings)
    : around(std::move(surroundings)),
      listenerLane(std::make_shared<Lane>(around.scheduler, "xpc listener", &around.process)) {}

InProcessXPC::~InProcessXPC() = default;

std::unique_ptr<korvel::XPCListener> InProcessXPC::makeListener(std::string_view machServiceName) {
  return std::make_unique<InProcessListener>(*this, machServiceName);
}

std::optional<std::int32_t> InProcessXPC::currentConnectionPid() {
  const Lane* lane = &around.scheduler.current();
  for (const std::shared_ptr<PeerConnection>& each : connections) {
    if (each->lane() == lane) return each->deliveringFor();
  }
  return std::nullopt;
}

void InProcessXPC::processGone() {
  for (const std::shared_ptr<PeerConnection>& each : std::exchange(connections, {})) {
    each->processGone();
  }
}

}  // namespace virtualmac
