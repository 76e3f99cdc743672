#include "Tests/seam/RemoteClient.h"

#include <unistd.h>

#include <utility>
#include <variant>

#include "VirtualMac/Remote/XPCMessages.h"

namespace virtualmac {

using korvel::PropertyValue;

RemoteClient::RemoteClient(const std::string& path) {
  auto connected = FrameSocket::connectTo(path);
  EXPECT_TRUE(connected);
  if (connected) socket = *std::move(connected);
}

RemoteClient::~RemoteClient() { disconnect(); }

void RemoteClient::disconnect() {
  socket = FrameSocket();
  failAll("disconnected");
}

std::int32_t RemoteClient::pid() const { return ::getpid(); }

AppCallRef RemoteClient::call(std::string_view selector, std::uint8_t argument) {
  auto made = std::make_shared<AppCall>();
  made->selector = selector;
  const auto* operation = korvel::operationWith(&korvel::Operation::selector, selector);
  const XPCCall message = operation == nullptr ? XPCCall{++lastTicket, made->selector, {}}
                                               : callOf(*operation, argument, ++lastTicket);
  const bool sent = socket.sendFrame(encode(message));
  if (operation != nullptr && operation->answer == korvel::OperationAnswer::None)
    made->answered = true;
  else
    waiting.emplace(message.ticket, made);
  if (!sent) failAll("the connection ended");
  return made;
}

void RemoteClient::pump() {
  if (socket.descriptor() < 0) return;
  for (;;) {
    const auto body = socket.receiveFrame(FrameSocket::deadlineIn(0));
    if (!body && body.error().kind == FrameSocket::Failure::Closed) failAll("the connection ended");
    ASSERT_TRUE(body || body.error().text.empty()) << body.error().text;
    if (!body) return;
    const auto reply = decodeXPCReply(*body);
    ASSERT_TRUE(reply) << reply.error();
    take(*reply);
  }
}

void RemoteClient::take(const XPCReply& reply) {
  const auto found = waiting.extract(reply.ticket);
  ASSERT_FALSE(found.empty()) << "a reply to no call";
  AppCall& call = *found.mapped();
  call.answered = true;
  const auto& first = std::get<PropertyValue>(reply.values.at(0));
  if (const auto* bytes = first.data()) call.data.assign(bytes->begin(), bytes->end());
  call.pid = static_cast<std::uint64_t>(first.integer().value_or(0));
  call.success = first.boolean().value_or(false);
  if (reply.values.size() < 2) return;
  if (const auto* error = std::get_if<korvel::ErrorObject>(&reply.values[1])) call.error = *error;
}

void RemoteClient::failAll(const std::string& reason) {
  for (const auto& [ticket, call] : std::exchange(waiting, {})) {
    call->failed = true;
    call->failure = reason;
  }
}

}  // namespace virtualmac
