#include "VirtualMac/Tools/ControlClient.h"

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

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

std::expected<ControlClient, std::string> ControlClient::connect(const RootDirectory& root) {
  if (auto problem = root.distrust()) return std::unexpected(*std::move(problem));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = root.control();
  if (path.size() >= sizeof address.sun_path)
    return std::unexpected("the path " + path + " is too long for a socket");
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int connected = hostsystem::unixSocket();
  if (connected < 0)
    return std::unexpected(std::string("no socket: ") + std::system_category().message(errno));
  if (::connect(connected, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return ControlClient(connected);
  ::close(connected);
  return std::unexpected("no virtual Mac is up in " + root.path + " (start one: virtual-mac up)");
}

ControlClient::ControlClient(ControlClient&& other) noexcept
    : socket(std::exchange(other.socket, -1)), input(std::move(other.input)), late(other.late) {}

ControlClient::~ControlClient() {
  if (socket >= 0) ::close(socket);
}

bool ControlClient::send(const json& request) {
  const std::string line = request.dump(-1, ' ', false, json::error_handler_t::replace) + '\n';
  std::size_t sent = 0;
  while (sent < line.size()) {
    const ssize_t step = ::send(socket, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (step < 0 && errno == EINTR) continue;
    if (step <= 0) return false;
    sent += static_cast<std::size_t>(step);
  }
  return true;
}

std::optional<json> ControlClient::receive(std::optional<double> timeoutSeconds) {
  const auto deadline =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(timeoutSeconds.value_or(0)));
  late = false;
  for (;;) {
    if (const std::size_t end = input.find('\n'); end != std::string::npos) {
      json message = json::parse(input.substr(0, end), nullptr, false);
      input.erase(0, end + 1);
      if (!message.is_object()) return std::nullopt;
      return message;
    }
    pollfd readable{.fd = socket, .events = POLLIN, .revents = 0};
    int wait = -1;
    if (timeoutSeconds) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      wait = left < 0 ? 0 : static_cast<int>(left) + 1;
    }
    const int ready = ::poll(&readable, 1, wait);
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) {
      late = true;
      return std::nullopt;
    }
    std::array<char, 16384> chunk{};
    const ssize_t got = ::recv(socket, chunk.data(), chunk.size(), 0);
    if (got <= 0) return std::nullopt;
    input.append(chunk.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace virtualmac
