#include "Tests/process/RawClient.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <bit>
#include <stdexcept>

#include "VirtualMac/Remote/HostSystem.h"

namespace processtests {

using nlohmann::json;

namespace {

/// Reads values back; throws on any malformed byte.
class Parser {
 public:
  explicit Parser(const std::string& body) : rest(body) {}

  std::uint64_t number(std::size_t size) {
    std::uint64_t value = 0;
    const std::string bytes = take(size);
    for (std::size_t index = size; index > 0; --index)
      value = value << 8U | static_cast<unsigned char>(bytes[index - 1]);
    return value;
  }
  std::string text() { return take(number(4)); }
  json value() {
    switch (number(1)) {
      case 0:
        return nullptr;
      case 1:
        return number(1) == 1;
      case 2:
        return static_cast<std::int64_t>(number(8));
      case 3:
      case 5:
        return std::bit_cast<double>(number(8));
      case 4:
      case 6:
        return text();
      case 7: {
        json array = json::array();
        for (auto count = number(4); count > 0; --count) array.push_back(value());
        return array;
      }
      case 8: {
        json object = json::object();
        for (auto count = number(4); count > 0; --count) {
          const std::string key = text();
          object[key] = value();
        }
        return object;
      }
      default:
        throw std::runtime_error("a value of an unknown type from the helper");
    }
  }
  json replyValue() {
    if (number(1) == 0) return value();
    json error;
    error["domain"] = text();
    error["code"] = static_cast<std::int64_t>(number(8));
    error["userInfo"] = value();
    return error;
  }

 private:
  std::string take(std::size_t size) {
    if (size > rest.size()) throw std::runtime_error("a truncated message from the helper");
    std::string taken = rest.substr(0, size);
    rest.erase(0, size);
    return taken;
  }
  std::string rest;
};

}  // namespace

Bytes& Bytes::u8(unsigned value) {
  bytes.push_back(static_cast<char>(value));
  return *this;
}

Bytes& Bytes::u32(std::uint32_t value) {
  for (unsigned shift = 0; shift < 32; shift += 8) u8(value >> shift & 0xFFU);
  return *this;
}

Bytes& Bytes::i64(std::int64_t value) {
  for (unsigned shift = 0; shift < 64; shift += 8)
    u8(static_cast<unsigned>(static_cast<std::uint64_t>(value) >> shift & 0xFFU));
  return *this;
}

Bytes& Bytes::text(const std::string& value) {
  u32(static_cast<std::uint32_t>(value.size()));
  return raw(value);
}

Bytes& Bytes::raw(const std::string& value) {
  bytes += value;
  return *this;
}

std::string Bytes::frame() const { return Bytes().text(bytes).body(); }

Bytes callBody(std::uint32_t ticket, const std::string& selector, const Bytes& arguments,
               unsigned count) {
  return Bytes().u8(1).u32(ticket).text(selector).u8(count).add(arguments);
}

RawClient::RawClient(const Mac& mac, const std::optional<std::string>& identity)
    : socket(virtualmac::hostsystem::unixSocket()) {
  if (identity) {
    identityHolder = std::make_unique<LineSocket>(mac.controlPath());
    identityHolder->send(json{{"command", "identify"}, {"identity", *identity}}.dump());
    if (!identityHolder->receive(20)) throw std::runtime_error("no identity");
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  mac.servicePath().copy(address.sun_path, sizeof address.sun_path - 1);
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("the service cannot be reached");
}

RawClient::~RawClient() { ::close(socket); }

void RawClient::send(const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t step = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (step <= 0) return;  // Cut off: receive() will show it.
    sent += static_cast<std::size_t>(step);
  }
}

std::size_t RawClient::sendWithoutWaiting(const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t step =
        ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (step <= 0) break;
    sent += static_cast<std::size_t>(step);
  }
  return sent;
}

void RawClient::finish() { ::shutdown(socket, SHUT_WR); }

std::optional<RawReply> RawClient::receive(double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  for (;;) {
    if (input.size() >= 4) {
      const std::size_t length = Parser(input).number(4);
      if (input.size() >= 4 + length) {
        Parser parser(input.substr(4, length));
        input.erase(0, 4 + length);
        if (parser.number(1) != 2) throw std::runtime_error("the helper sent no reply");
        RawReply reply;
        reply.ticket = static_cast<std::uint32_t>(parser.number(4));
        for (auto count = parser.number(1); count > 0; --count)
          reply.values.push_back(parser.replyValue());
        return reply;
      }
    }
    if (!receiveMore(socket, input, deadline)) return std::nullopt;
  }
}

bool RawClient::isCutOff(double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  while (clockNow() < deadline)
    if (!receiveMore(socket, input, deadline)) return clockNow() < deadline;
  return false;
}

std::optional<RawReply> RawClient::call(const std::string& selector, const Bytes& arguments,
                                        unsigned count) {
  const std::uint32_t ticket = ++lastTicket;
  send(callBody(ticket, selector, arguments, count).frame());
  auto reply = receive();
  if (reply && reply->ticket != ticket) throw std::runtime_error("the reply of another call");
  return reply;
}

std::optional<RawReply> RawClient::setChargeLimit(int percent) {
  return call("setChargeLimit:reply:", Bytes().integer(percent), 1);
}

std::optional<RawReply> RawClient::forceDischarge(bool enable) {
  return call("forceDischarge:reply:", Bytes().boolean(enable), 1);
}

std::optional<json> RawClient::getState() {
  const auto reply = call("getStateWithReply:");
  if (!reply || reply->values.size() != 1) return std::nullopt;
  return json::parse(reply->values.front().get<std::string>());
}

std::uint32_t stopHelper(const Mac& mac, RawClient& client) {
  constexpr std::uint32_t first = 1'000;
  constexpr double longestSeconds = 20;
  mac.tell({"kill", "STOP"});
  // The signal takes a moment to arrive, in which many calls may still be answered.
  const double deadline = clockNow() + longestSeconds;
  for (std::uint32_t ticket = first; clockNow() < deadline; ++ticket) {
    client.send(callBody(ticket, "pingWithReply:").frame());
    if (!client.receive(1)) return ticket;
  }
  throw std::runtime_error("the helper does not stop");
}

bool succeeded(const std::optional<RawReply>& reply) {
  return reply && reply->values == std::vector<json>{true, nullptr};
}

}  // namespace processtests
