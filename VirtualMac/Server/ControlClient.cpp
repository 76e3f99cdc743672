#include "VirtualMac/Server/ControlClient.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace virtualmac {

using nlohmann::json;

std::expected<ControlClient, std::string> ControlClient::connect(const RootDirectory& root) {
  if (auto problem = root.distrust()) return std::unexpected(*std::move(problem));
  auto connected = FrameSocket::connectTo(root.control());
  if (connected) return ControlClient(*std::move(connected));
  const std::error_code error = connected.error();
  const bool nobodyListens = error == std::errc::connection_refused ||
                             error == std::errc::no_such_file_or_directory ||
                             error == std::errc::not_a_directory;
  if (!nobodyListens)
    return std::unexpected(FrameSocket::problemText(root.control(), error) + root.origin());
  return std::unexpected("no virtual Mac is up in " + root.path + root.origin() +
                         " (start one: virtual-mac up)");
}

bool ControlClient::send(const json& request) {
  return socket.send(request.dump(-1, ' ', false, json::error_handler_t::replace) + '\n');
}

std::optional<json> ControlClient::receive(std::optional<double> timeoutSeconds) {
  const auto deadline =
      timeoutSeconds ? FrameSocket::deadlineIn(*timeoutSeconds) : FrameSocket::Deadline();
  const FrameSocket::Received line = socket.receiveLine(deadline);
  late = !line && line.error().kind == FrameSocket::Failure::Late;
  if (!line) return std::nullopt;
  json message = json::parse(*line, nullptr, false);
  if (!message.is_object()) return std::nullopt;
  return message;
}

}  // namespace virtualmac
