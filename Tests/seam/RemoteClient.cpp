#include "Tests/seam/RemoteClient.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <utility>
#include <variant>

#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Remote/XPCMessages.h"

namespace virtualmac {

using korvel::PropertyValue;

RemoteClient::RemoteClient(const std::string& path) : socket(hostsystem::unixSocket()) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

RemoteClient::~RemoteClient() { disconnect(); }

void RemoteClient::disconnect() {
  if (socket >= 0) ::close(std::exchange(socket, -1));
  failAll("disconnected");
}

std::int32_t RemoteClient::pid() const { return ::getpid(); }

AppCallRef RemoteClient::call(std::string_view selector, std::uint8_t argument) {
  auto made = std::make_shared<AppCall>();
  made->selector = selector;
  const auto* operation = korvel::operationWith(&korvel::Operation::selector, selector);
  const XPCCall message = operation == nullptr ? XPCCall{++lastTicket, made->selector, {}}
                                               : callOf(*operation, argument, ++lastTicket);
  const std::string bytes = wireFrame(encode(message));
  const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (operation != nullptr && operation->answer == korvel::OperationAnswer::None)
    made->answered = true;
  else
    waiting.emplace(message.ticket, made);
  if (sent != static_cast<ssize_t>(bytes.size())) failAll("the connection ended");
  return made;
}

void RemoteClient::pump() {
  if (socket < 0) return;
  for (;;) {
    std::array<char, 16384> chunk{};
    const ssize_t got = ::recv(socket, chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno == ECONNRESET)) failAll("the connection ended");
    if (got <= 0) break;
    input.append(chunk.data(), static_cast<std::size_t>(got));
  }
  while (input.size() >= wireHeaderSize) {
    const std::uint32_t length =
        wireBodyLength(std::span<const char, wireHeaderSize>(input.data(), wireHeaderSize));
    if (input.size() < wireHeaderSize + length) return;
    const auto reply = decodeXPCReply(std::string_view(input).substr(wireHeaderSize, length));
    input.erase(0, wireHeaderSize + length);
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
