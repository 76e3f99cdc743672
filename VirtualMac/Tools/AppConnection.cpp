#include "VirtualMac/Tools/AppConnection.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "KorvelHelperProtocol.h"

namespace virtualmac {

namespace {

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
  auto socket = FrameSocket::connectTo(reply->value("service", std::string()));
  if (socket) return AppConnection(*std::move(socket), *std::move(machine));
  return failed("the service cannot be reached: " + socket.error().message());
}

std::unexpected<std::string> AppConnection::end(const std::string& reason) {
  if (!ended) {
    ended = reason;
    socket.shutDown();
  }
  return std::unexpected(reason);
}

std::unexpected<std::string> AppConnection::failed(const FrameSocket::Error& error) {
  if (error.kind == FrameSocket::Failure::Late)
    return std::unexpected(std::string("no reply in time"));
  if (error.kind == FrameSocket::Failure::Closed) return end(cutOff);
  return end("the helper sent an oversized message: " + error.text);
}

bool AppConnection::isThere() {
  while (!ended) {
    const auto late = socket.receiveFrame(FrameSocket::deadlineIn(0));
    if (late) continue;
    static_cast<void>(failed(late.error()));
    if (late.error().kind == FrameSocket::Failure::Late) return true;
  }
  return false;
}

std::expected<std::vector<XPCValue>, std::string> AppConnection::call(
    const korvel::Operation& operation, std::uint8_t argument, double timeoutSeconds) {
  const bool oneWay = operation.answer == korvel::OperationAnswer::None;
  const std::uint32_t ticket = oneWay ? 0 : ++lastTicket;
  if (!socket.sendFrame(encode(callOf(operation, argument, ticket)))) return end(cutOff);
  const FrameSocket::Deadline deadline = FrameSocket::deadlineIn(timeoutSeconds);
  for (;;) {
    const auto body = socket.receiveFrame(deadline);
    if (!body) {
      const auto failure = failed(body.error());
      if (oneWay && body.error().kind == FrameSocket::Failure::Closed) {
        return std::vector<XPCValue>();
      }
      return failure;
    }
    const auto reply = decodeXPCReply(*body);
    if (!reply) return end("a reply that makes no sense: " + reply.error());
    if (reply->ticket != ticket) continue;
    const auto fits = checkReply(operation, reply->values, helperInterface());
    if (!fits) return end(fits.error());
    return reply->values;
  }
}

}  // namespace virtualmac
