#include "VirtualMac/Tools/HelperView.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

namespace virtualmac {

namespace {

constexpr std::chrono::milliseconds betweenLooks{5};
/// A record and the log around it that change at every look are told as they are.
constexpr int mostLooks = 5;

/// How the machine's status tells it; none: the machine is gone.
std::optional<Enforcement> enforcementNow(ControlClient& machine) {
  if (!machine.send({{"command", "status"}})) return std::nullopt;
  const auto reply = machine.receive();
  if (!reply) return std::nullopt;
  const auto status = nlohmann::json::parse(reply->value("json", std::string()), nullptr, false);
  if (!status.is_object() || !status.contains("enforcement")) return std::nullopt;
  return enforcementFrom(status["enforcement"]);
}

/// The payload of an operation that answers with bytes.
std::expected<std::string, std::string> dataReply(AppConnection& helper,
                                                  const korvel::Operation& operation,
                                                  double timeoutSeconds) {
  const auto values = helper.call(operation, 0, timeoutSeconds);
  if (!values) return std::unexpected(values.error());
  const auto* bytes = std::get<korvel::PropertyValue>(values->front()).data();
  return std::string(bytes->begin(), bytes->end());
}

}  // namespace

std::expected<HelperView, AppConnection::OpenError> HelperView::open(const RootDirectory& root,
                                                                     const std::string& identity,
                                                                     double timeoutSeconds) {
  auto machine = ControlClient::connect(root);
  if (!machine) return std::unexpected(AppConnection::OpenError{machine.error()});
  auto before = enforcementNow(*machine);
  if (!before) return std::unexpected(AppConnection::OpenError{"the machine went down"});
  auto helper = AppConnection::open(root, identity);
  if (!helper) return std::unexpected(helper.error());
  return HelperView(*std::move(machine), *std::move(helper), *std::move(before), timeoutSeconds);
}

void HelperView::waitUntilCounted() {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::duration<double>(timeoutSeconds);
  while (Clock::now() < deadline) {
    const auto now = enforcementNow(machine);
    if (!now || now->connects > before.connects) return;
    std::this_thread::sleep_for(betweenLooks);
  }
}

std::expected<HelperView::Look, std::string> HelperView::look() {
  if (capabilities.empty()) {
    // A helper that never answers is not waited for a second time.
    const auto sent = dataReply(helper, korvel::operation::capabilities, timeoutSeconds);
    if (!sent) return std::unexpected(sent.error());
    capabilities = *sent;
    waitUntilCounted();
  }
  auto now = enforcementNow(machine);
  std::string state;
  for (int looks = 0; now && looks < mostLooks; ++looks) {
    const auto earlier = now;
    const auto sent = dataReply(helper, korvel::operation::getState, timeoutSeconds);
    if (!sent) return std::unexpected(sent.error());
    state = *sent;
    now = enforcementNow(machine);
    if (now == earlier) break;
  }
  if (!now) return std::unexpected("the machine went down");
  auto record = korvel::decodeStateReply(state);
  if (!record) return std::unexpected(record.error());
  const auto means = korvel::decodeCapabilities(capabilities);
  if (!means) return std::unexpected(means.error());
  return Look{state, capabilities, {*std::move(record), *means, *std::move(now), before}};
}

}  // namespace virtualmac
