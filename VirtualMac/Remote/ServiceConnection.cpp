#include "VirtualMac/Remote/ServiceConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <asio/buffer.hpp>
#include <asio/dispatch.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <future>
#include <utility>

#include "VirtualMac/Machine/ReplyText.h"
#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Remote/ServiceListener.h"

namespace virtualmac {

using korvel::ErrorObject;
using korvel::Operation;
using korvel::PropertyValue;

namespace {

thread_local std::optional<std::int32_t> pidOfCurrentCall;

/// The effect of a reply that is as its operation declares it.
Effect effectOf(std::string_view operation, const std::vector<XPCValue>& values) {
  const auto& first = std::get<PropertyValue>(values.front());
  if (first.data() != nullptr) {
    return replied(operation, std::string(first.data()->begin(), first.data()->end()));
  }
  if (first.integer()) {
    return replied(operation, static_cast<std::uint64_t>(*first.integer()));
  }
  const auto* error = values.size() > 1 ? std::get_if<ErrorObject>(&values[1]) : nullptr;
  return replied(operation, first.boolean().value_or(false),
                 error == nullptr ? std::nullopt : std::optional(*error));
}

std::vector<XPCValue> valuesOf(bool success, std::optional<ErrorObject> error) {
  std::vector<XPCValue> values{PropertyValue(success), PropertyValue()};
  if (error) values[1] = *std::move(error);
  return values;
}
std::vector<XPCValue> valuesOf(const std::string& bytes) {
  return {PropertyValue(PropertyValue::Data(bytes.begin(), bytes.end()))};
}
std::vector<XPCValue> valuesOf(std::uint64_t number) {
  return {PropertyValue(static_cast<std::int64_t>(number))};
}

/// Carries one call's answer to its connection.
template <class... Values>
class ConnectionSink final : public korvel::ReplySink<Values...> {
 public:
  ConnectionSink(std::shared_ptr<ServiceConnection> target, const Operation& answered,
                 std::uint32_t callTicket)
      : connection(std::move(target)), operation(answered), ticket(callTicket) {}
  void deliver(Values... values) override {
    connection->reply(operation, ticket, valuesOf(std::move(values)...));
  }

 private:
  std::shared_ptr<ServiceConnection> connection;
  const Operation& operation;
  std::uint32_t ticket;
};

}  // namespace

ServiceConnection::ServiceConnection(Socket accepted, HelperHost& machineHost)
    : socket(std::move(accepted)),
      host(machineHost),
      pid(hostsystem::peerProcess(socket.native_handle())),
      breaks(host.connectionsBreak()) {}

ServiceConnection::~ServiceConnection() = default;

std::optional<std::int32_t> ServiceConnection::currentPid() { return pidOfCurrentCall; }

void ServiceConnection::setExportedInterface(const korvel::XPCInterface& interface) {
  exportedInterface = interface;
}

void ServiceConnection::setExportedObject(std::shared_ptr<korvel::KorvelHelperProtocol> object) {
  exportedObject = std::move(object);
}

bool ServiceConnection::setCodeSigningRequirement(const std::string& requirement) {
  if (const auto error = host.requirementError(requirement)) {
    tell("requirement does not parse: " + *error);
    return false;
  }
  codeRequirement = requirement;
  return true;
}

void ServiceConnection::setInvalidationHandler(std::function<void()> handler) {
  invalidationHandler = std::move(handler);
  breakAt(ConnectionBreak::AtHandler);
}

void ServiceConnection::setInterruptionHandler(std::function<void()> handler) {
  interruptionHandler = std::move(handler);
}

void ServiceConnection::resume() {
  if (resumed) return;
  resumed = true;
  if (over) return;
  tell("client " + std::to_string(pid) + " connected");
  // From here on only the connection's thread touches it.
  asio::post(socket.get_executor(), [self = shared_from_this()] { self->read(); });
  breakAt(ConnectionBreak::InResume);
  breakAt(ConnectionBreak::AfterResume);
}

void ServiceConnection::breakAt(ConnectionBreak moment) {
  if (breaks != moment) return;
  const auto ended = std::make_shared<std::promise<void>>();
  asio::post(socket.get_executor(), [self = shared_from_this(), ended] {
    self->end(std::string(connectionBroke));
    ended->set_value();
  });
  if (moment != ConnectionBreak::AfterResume) ended->get_future().wait();
}

void ServiceConnection::tell(std::string text) {
  host.journal(Effect{EffectID::told, {"app", std::move(text)}});
}

void ServiceConnection::refuse() {
  if (resumed) {
    asio::post(socket.get_executor(), [self = shared_from_this()] { self->end("refused"); });
    return;
  }
  if (over) return;
  tell("client " + std::to_string(pid) + " refused");
  over = true;
  std::error_code ignored;
  static_cast<void>(socket.close(ignored));
}

void ServiceConnection::read() {
  if (over || reading || unanswered >= ServiceListener::unansweredLimit) return;
  reading = true;
  socket.async_read_some(asio::buffer(chunk), [self = shared_from_this()](
                                                  const std::error_code& error, std::size_t got) {
    self->reading = false;
    if (error) {
      return self->end(self->incoming.empty() ? ""
                                              : "truncated: the peer stopped inside a message");
    }
    self->incoming.append(self->chunk.data(), got);
    self->takeMessages();
  });
}

void ServiceConnection::takeMessages() {
  while (!over && unanswered < ServiceListener::unansweredLimit) {
    const auto message = takeFrame(incoming);
    if (!message) return end("oversized: a message of " + message.error());
    if (!*message) return read();
    take(**message);
  }
}

void ServiceConnection::take(const std::string& message) {
  if (!isAdmitted()) return;
  const auto call = decodeXPCCall(message);
  if (!call) return end("malformed: " + call.error());
  const Operation* operation = korvel::operationWith(&Operation::selector, call->selector);
  if (operation == nullptr) return end("unknown selector \"" + call->selector + '"');
  const auto argument = argumentIn(*operation, call->arguments);
  if (!argument) return end("malformed: " + argument.error());
  if (operation->answer != korvel::OperationAnswer::None) ++unanswered;
  pidOfCurrentCall = pid;
  deliver(*operation, *argument, call->ticket);
  pidOfCurrentCall.reset();
}

bool ServiceConnection::isAdmitted() {
  if (admitted || codeRequirement.empty()) return true;
  const PeerVerdict verdict = host.judge(pid, codeRequirement);
  admitted = verdict == PeerVerdict::Satisfies;
  // The machine forgets a client that has ended, so it can be neither judged nor answered.
  const bool left = verdict == PeerVerdict::Unknown && peerHasHungUp();
  if (!admitted) end(left ? "" : "does not satisfy the code-signing requirement");
  return admitted;
}

bool ServiceConnection::peerHasHungUp() {
  pollfd watched{.fd = socket.native_handle(), .events = 0, .revents = 0};
  return ::poll(&watched, 1, 0) > 0 && (watched.revents & POLLHUP) != 0;
}

void ServiceConnection::deliver(const Operation& operation, std::uint8_t argument,
                                std::uint32_t ticket) {
  // A copy, since a reply made on this thread may end the connection, which drops its object.
  const std::shared_ptr<korvel::KorvelHelperProtocol> exported = exportedObject;
  const auto makeReply = [&]<class... Values>(std::type_identity<korvel::BasicReply<Values...>>) {
    return korvel::BasicReply<Values...>(
        std::make_unique<ConnectionSink<Values...>>(shared_from_this(), operation, ticket));
  };
  korvel::callOperation(operation, *exported, argument, makeReply);
}

void ServiceConnection::reply(const Operation& operation, std::uint32_t ticket,
                              std::vector<XPCValue> values) {
  host.journal(effectOf(operation.method, values));
  asio::dispatch(socket.get_executor(),
                 [self = shared_from_this(), &operation, ticket, sent = std::move(values)] {
                   self->sendReply(operation, ticket, sent);
                 });
}

void ServiceConnection::sendReply(const Operation& operation, std::uint32_t ticket,
                                  const std::vector<XPCValue>& values) {
  if (over) return;
  if (const auto fits = checkReply(operation, values, exportedInterface); !fits)
    return end(fits.error());
  outgoing.push_back(frameOf(encode(XPCReply{ticket, values})));
  if (outgoing.size() == 1) writeNext();
}

void ServiceConnection::writeNext() {
  asio::async_write(socket, asio::buffer(outgoing.front()),
                    [self = shared_from_this()](const std::error_code& error, std::size_t) {
                      if (error) return self->end("");
                      if (self->over) return;
                      self->outgoing.pop_front();
                      --self->unanswered;
                      if (!self->outgoing.empty()) self->writeNext();
                      self->takeMessages();
                    });
}

void ServiceConnection::end(const std::string& reason) {
  if (over) return;
  over = true;
  tell("client " + std::to_string(pid) +
       (reason.empty() ? " disconnected" : " cut off: " + reason));
  std::error_code ignored;
  static_cast<void>(socket.close(ignored));
  exportedObject.reset();
  interruptionHandler = nullptr;
  if (const auto handler = std::exchange(invalidationHandler, nullptr)) handler();
}

}  // namespace virtualmac
