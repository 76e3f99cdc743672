#include "VirtualMac/Tools/AppConnection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "KorvelHelperProtocol.h"
#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

namespace {

constexpr const char* cutOff = "the helper ended the connection";

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Waits until something can be read (true) or the moment has come.
bool readable(int socket, double deadline) {
  for (;;) {
    const double left = deadline - now();
    pollfd watched{.fd = socket, .events = POLLIN, .revents = 0};
    const int ready = ::poll(&watched, 1, left > 0 ? static_cast<int>(left * 1000) + 1 : 0);
    if (ready > 0) return true;
    if (ready == 0) return false;
    if (errno != EINTR) return true;  // Reading tells what is wrong.
  }
}

const korvel::XPCInterface& helperInterface() {
  static const korvel::XPCInterface interface = [] {
    korvel::XPCInterface made = korvel::makeHelperInterface();
    korvel::applyTypedReplyClasses(made);
    return made;
  }();
  return interface;
}

}  // namespace

std::expected<AppConnection, AppConnection::OpenError> AppConnection::open(
    const RootDirectory& root, const std::string& identity) {
  const auto failed = [](const std::string& text, bool isUsage = false) {
    return std::unexpected(OpenError{text, isUsage});
  };
  auto machine = ControlClient::connect(root);
  if (!machine) return failed(machine.error());
  machine->send({{"command", "identify"}, {"identity", identity}});
  const auto reply = machine->receive();
  if (!reply) return failed("the machine went down");
  if (!reply->value("ok", false))
    return failed(reply->value("error", std::string("no identity")), reply->value("usage", false));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const auto path = reply->value("service", std::string());
  if (path.size() >= sizeof address.sun_path) return failed("the service path is too long");
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int connected = hostsystem::unixSocket();
  if (connected >= 0 &&
      ::connect(connected, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return AppConnection(connected, *std::move(machine));
  const std::string reason = std::system_category().message(errno);
  if (connected >= 0) ::close(connected);
  return failed("the service cannot be reached: " + reason);
}

AppConnection::AppConnection(AppConnection&& other) noexcept
    : socket(std::exchange(other.socket, -1)),
      machine(std::move(other.machine)),
      lastTicket(other.lastTicket),
      input(std::move(other.input)) {}

AppConnection::~AppConnection() {
  if (socket >= 0) ::close(socket);
}

std::expected<void, std::string> AppConnection::send(const std::string& bytes) {
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const ssize_t sent = ::send(socket, rest.data(), rest.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return std::unexpected(cutOff);
    rest.remove_prefix(static_cast<std::size_t>(sent));
  }
  return {};
}

std::expected<std::string, std::string> AppConnection::receiveBody(double deadline) {
  for (;;) {
    if (input.size() >= wireHeaderSize) {
      const std::uint32_t length =
          wireBodyLength(std::span<const char, wireHeaderSize>(input.data(), wireHeaderSize));
      if (length > wireFrameLimit)
        return std::unexpected("the helper sent an oversized message: " + oversizedText(length));
      if (input.size() >= wireHeaderSize + length) {
        std::string body = input.substr(wireHeaderSize, length);
        input.erase(0, wireHeaderSize + length);
        return body;
      }
    }
    if (!readable(socket, deadline)) return std::unexpected("no reply in time");
    std::array<char, 16384> chunk{};
    const ssize_t got = ::recv(socket, chunk.data(), chunk.size(), 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return std::unexpected(cutOff);
    input.append(chunk.data(), static_cast<std::size_t>(got));
  }
}

std::expected<std::vector<XPCValue>, std::string> AppConnection::call(
    const korvel::Operation& operation, std::uint8_t argument, double timeoutSeconds) {
  const bool oneWay = operation.answer == korvel::OperationAnswer::None;
  const std::uint32_t ticket = oneWay ? 0 : ++lastTicket;
  const XPCCall call = callOf(operation, argument, ticket);
  if (const auto sent = send(wireFrame(encode(call))); !sent) return std::unexpected(sent.error());
  const double deadline = now() + timeoutSeconds;
  for (;;) {
    const auto body = receiveBody(deadline);
    if (!body && oneWay && body.error() == cutOff) return std::vector<XPCValue>();
    if (!body) return std::unexpected(body.error());
    const auto reply = decodeXPCReply(*body);
    if (!reply) return std::unexpected("a reply that makes no sense: " + reply.error());
    if (reply->ticket != ticket) continue;
    const auto fits = checkReply(operation, reply->values, helperInterface());
    if (!fits) return std::unexpected(fits.error());
    return reply->values;
  }
}

bool AppConnection::stayConnected(double seconds) {
  if (!readable(socket, now() + seconds)) return true;
  char byte = 0;
  return ::recv(socket, &byte, 1, MSG_PEEK) > 0;
}

}  // namespace virtualmac
