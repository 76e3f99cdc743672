#include "Benchmarks/HelperService.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "VirtualMac/Remote/HostSystem.h"

namespace benchmarks {

namespace {

constexpr double timeoutSeconds = 5;

}  // namespace

HelperService::HelperService(int speed) {
  std::array<char, 40> name{"/tmp/korvel-benchmark-XXXXXX"};
  root.path = mkdtemp(name.data());
  if (!run("up --speed " + std::to_string(speed))) std::abort();
}

HelperService::~HelperService() {
  static_cast<void>(run("down"));
  std::error_code ignored;
  std::filesystem::remove_all(root.path, ignored);
}

bool HelperService::run(const std::string& command) const {
  const std::string line =
      VIRTUAL_MAC_PROGRAM " --root " + root.path + " " + command + " >/dev/null";
  return std::system(line.c_str()) == 0;
}

std::optional<HelperService::Connection> HelperService::connect() const {
  auto opened = Connection::open(root, "app");
  if (!opened) return std::nullopt;
  return *std::move(opened);
}

std::vector<virtualmac::XPCValue> HelperService::answer(Connection& app,
                                                        const korvel::Operation& operation,
                                                        std::uint8_t argument) {
  const auto reply = app.call(operation, argument, timeoutSeconds);
  return reply ? *reply : std::vector<virtualmac::XPCValue>();
}

pid_t HelperService::pid(Connection& app) {
  const auto values = answer(app, korvel::operation::ping);
  if (values.empty()) return 0;
  return static_cast<pid_t>(*std::get<korvel::PropertyValue>(values.front()).integer());
}

// The machine listens for the helper.
pid_t HelperService::machinePid(const Connection& app) {
  return virtualmac::hostsystem::peerProcess(app.descriptor());
}

nlohmann::json HelperService::status() const {
  auto door = virtualmac::ControlClient::connect(root);
  if (!door || !door->send({{"command", "status"}})) return nullptr;
  const auto reply = door->receive(timeoutSeconds);
  return reply ? nlohmann::json::parse(reply->value("json", std::string("null"))) : nullptr;
}

}  // namespace benchmarks
