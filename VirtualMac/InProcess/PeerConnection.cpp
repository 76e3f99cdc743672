#include "VirtualMac/InProcess/PeerConnection.h"

#include <algorithm>
#include <utility>

#include "Base/Trap.h"
#include "VirtualMac/InProcess/ReplyTransport.h"
#include "VirtualMac/Machine/CodeSignatures.h"

namespace virtualmac {

PeerConnection::PeerConnection(InProcessXPC& owner, std::shared_ptr<ClientEnd> other)
    : service(owner),
      client(std::move(other)),
      thread(std::make_shared<Lane>(owner.around.scheduler, "xpc " + std::to_string(client->pid()),
                                    &owner.around.process)) {}

// ---- the helper's

void PeerConnection::setExportedInterface(const korvel::XPCInterface& exportedInterface) {
  interface = exportedInterface;
}

void PeerConnection::setExportedObject(std::shared_ptr<korvel::KorvelHelperProtocol> object) {
  exported = std::move(object);
}

bool PeerConnection::setCodeSigningRequirement(const std::string& text) {
  if (resumed) korvel::trap("a requirement was set on a resumed connection");
  if (requirement) korvel::trap("a second requirement was set on a connection");
  std::expected<Requirement, RequirementError> parsed = Requirement::parse(text);
  if (!parsed) {
    service.around.reportViolation("requirement does not parse: " + parsed.error().message);
    return false;
  }
  requirement = std::move(*parsed);
  return true;
}

void PeerConnection::setInvalidationHandler(std::function<void()> handler) {
  invalidationHandler = std::move(handler);
  breakAt(ConnectionBreak::AtHandler);
}

void PeerConnection::setInterruptionHandler(std::function<void()> handler) {
  interruptionHandler = std::move(handler);
}

void PeerConnection::resume() {
  if (resumed || invalid) return;
  resumed = true;
  client->accepted(weak_from_this());
  // The client may have gone before anybody looked.
  if (client->isOver()) clientGone();
  breakAt(ConnectionBreak::InResume);
  breakAt(ConnectionBreak::AfterResume);
  service.around.scheduler.mayInterrupt();
}

void PeerConnection::breakAt(ConnectionBreak moment) {
  if (service.around.connectionsBreak != moment) return;
  service.around.scheduler.post(*thread, [self = shared_from_this()] {
    self->client->cutOff(std::string(connectionBroke));
    self->invalidate();
  });
  if (moment != ConnectionBreak::AfterResume) awaitEnd();
}

void PeerConnection::awaitEnd() {
  Scheduler& scheduler = service.around.scheduler;
  ThreadGroup& process = service.around.process;
  awaiting = &scheduler.current();
  while (!ended) {
    scheduler.block(Wait{
        .what = "handler", .name = thread->name(), .holder = thread.get(), .process = &process});
    scheduler.requireAlive(&process);
  }
  awaiting = nullptr;
}

// ---- the client's

void PeerConnection::receive(ServiceMessage message) {
  service.around.scheduler.post(*thread, [self = shared_from_this(), message = std::move(message)] {
    self->deliver(message);
  });
}

void PeerConnection::clientGone() {
  service.around.scheduler.post(*thread, [self = shared_from_this()] { self->invalidate(); });
}

void PeerConnection::clientInterrupted() {
  service.around.scheduler.post(*thread, [self = shared_from_this()] {
    if (self->invalid || !self->interruptionHandler) return;
    const auto& around = self->service.around;
    around.observers.tell(&ScheduleObserver::connectionBreaking, around.process);
    self->interruptionHandler();
    around.observers.tell(&ScheduleObserver::connectionBroken, around.process);
  });
}

// ---- messages

void PeerConnection::deliver(const ServiceMessage& message) {
  // Messages that a client sent before it went away are delivered all the same.
  if (invalid) return;
  if (!peerIsAdmitted()) {
    client->cutOff("requirement not satisfied");
    invalidate();
    return;
  }
  if (interface.protocolName != "KorvelHelperProtocol" || exported == nullptr) {
    client->failed(message.call, "the connection exports nothing");
    return;
  }
  // Ends with the delivery, also when that unwinds.
  struct Delivering {
    std::optional<std::int32_t>& pid;
    ~Delivering() { pid.reset(); }
  } scope{delivering};
  delivering = client->pid();
  const ScheduleObservers& observers = service.around.observers;
  observers.tell(&ScheduleObserver::messageBegins, *thread,
                 std::string_view(message.call->selector));
  call(message);
  observers.tell(&ScheduleObserver::messageEnds, *thread);
}

bool PeerConnection::peerIsAdmitted() {
  if (!requirement) return true;
  const SigningIdentity* identity = service.around.signatures.identity(client->identity());
  return identity != nullptr && requirement->satisfiedBy(*identity);
}

void PeerConnection::call(const ServiceMessage& message) {
  const korvel::Operation* operation =
      korvel::operationWith(&korvel::Operation::selector, message.call->selector);
  if (operation == nullptr) {
    client->cutOff("unknown selector \"" + message.call->selector + '"');
    return invalidate();
  }
  // Kept for the call: the connection may end meanwhile.
  const std::shared_ptr<korvel::KorvelHelperProtocol> object = exported;
  deliverCall({service.around, client, message.call, *operation, interface}, *object,
              message.argument);
}

// ---- the end

void PeerConnection::invalidate() {
  if (invalid) return;
  invalid = true;
  const std::shared_ptr<PeerConnection> self = shared_from_this();
  std::erase(service.connections, self);
  const ScheduleObservers& observers = service.around.observers;
  observers.tell(&ScheduleObserver::connectionEnding, service.around.process);
  if (invalidationHandler) std::exchange(invalidationHandler, nullptr)();
  observers.tell(&ScheduleObserver::connectionEnded, service.around.process);
  interruptionHandler = nullptr;
  exported = nullptr;
  ended = true;
  if (awaiting != nullptr) service.around.scheduler.wake(*awaiting);
}

void PeerConnection::refuse() {
  invalid = true;
  client->refused();
  invalidationHandler = nullptr;
  interruptionHandler = nullptr;
  exported = nullptr;
}

void PeerConnection::processGone() {
  invalid = true;
  client->helperGone();
  invalidationHandler = nullptr;
  interruptionHandler = nullptr;
  exported = nullptr;
}

}  // namespace virtualmac
