#include "VirtualMac/InProcess/ServiceEndpoint.h"

#include <algorithm>
#include <utility>

namespace virtualmac {

// ---- endpoint

void ServiceEndpoint::connect(const std::shared_ptr<ClientEnd>& client) {
  waiting.push_back(client);
  if (acceptor != nullptr) acceptor->incoming();
  onDemand();
}

std::shared_ptr<ClientEnd> ServiceEndpoint::take() {
  if (waiting.empty()) return nullptr;
  std::shared_ptr<ClientEnd> client = std::move(waiting.front());
  waiting.pop_front();
  return client;
}

void ServiceEndpoint::listen(ConnectionAcceptor& by) {
  acceptor = &by;
  for (std::size_t i = 0; i < waiting.size(); ++i) by.incoming();
}

void ServiceEndpoint::stopListening(ConnectionAcceptor& by) {
  if (acceptor == &by) acceptor = nullptr;
}

// ---- client's end

ClientEnd::ClientEnd(ServiceEndpoint& service, Journal& journalOfWorld, std::string identityName,
                     std::int32_t processID)
    : endpoint(service),
      record(journalOfWorld),
      identityLabel(std::move(identityName)),
      id(processID) {}

void ClientEnd::journal(const std::string& text) {
  record.record("app", identityLabel + ' ' + std::to_string(id) + ' ' + text);
}

void ClientEnd::connect() {
  journal("connects");
  requested = true;
  endpoint.connect(shared_from_this());
}

void ClientEnd::send(ServiceMessage message) {
  if (over) {
    message.call->failed = true;
    message.call->failure = "the connection is over";
    return;
  }
  pending.push_back(message.call);
  if (const std::shared_ptr<ServerEnd> there = server.lock()) {
    there->receive(std::move(message));
    return;
  }
  unsent.push_back(std::move(message));
  if (!requested) connect();
}

void ClientEnd::accepted(std::weak_ptr<ServerEnd> by) {
  requested = false;
  server = std::move(by);
  for (ServiceMessage& message : std::exchange(unsent, {})) {
    if (const std::shared_ptr<ServerEnd> there = server.lock()) {
      there->receive(std::move(message));
    }
  }
}

void ClientEnd::disconnect(const std::string& how) {
  if (over) return;
  journal(how);
  const std::shared_ptr<ServerEnd> there = server.lock();
  end("the client ended the connection");
  if (there) there->clientGone();
}

void ClientEnd::interrupt() {
  if (over) return;
  journal("interrupted");
  unsent.clear();
  failAll("the connection was interrupted");
  if (const std::shared_ptr<ServerEnd> there = server.lock()) there->clientInterrupted();
}

void ClientEnd::refused() {
  if (over) return;
  journal("refused");
  unsent.clear();
  end("the helper refused the connection");
}

void ClientEnd::cutOff(const std::string& why) {
  if (over) return;
  journal("cut off: " + why);
  end("the connection was cut off: " + why);
}

void ClientEnd::helperGone() {
  server.reset();
  requested = false;
  failAll("the helper went away");
}

void ClientEnd::answered(const AppCallRef& call) {
  call->answered = !call->failed;
  std::erase(pending, call);
}

void ClientEnd::failed(const AppCallRef& call, const std::string& why) {
  call->failed = true;
  call->failure = why;
  std::erase(pending, call);
}

void ClientEnd::failAll(const std::string& why) {
  for (const AppCallRef& call : std::exchange(pending, {})) {
    if (call->over()) continue;
    call->failed = true;
    call->failure = why;
  }
}

void ClientEnd::end(const std::string& why) {
  over = true;
  server.reset();
  failAll(why);
}

}  // namespace virtualmac
