#pragma once

#include <expected>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "VirtualMac/Remote/FrameSocket.h"
#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// The other side of the machine's door, for programs that wait for one answer at a time. Throws
/// nothing; errors are one line for a person.
class ControlClient {
 public:
  /// Connects; the error says that no machine is up, and where it was looked for, or why that place
  /// is not to be trusted.
  static std::expected<ControlClient, std::string> connect(const RootDirectory& root);

  /// Sends one request. False: the machine is gone.
  bool send(const nlohmann::json& request);
  /// The next line as an object; none: the machine is gone, or `timeoutSeconds` have passed.
  std::optional<nlohmann::json> receive(std::optional<double> timeoutSeconds = std::nullopt);
  /// Gives up the descriptor, for a machine that speaks to a program from now on.
  int release() { return socket.release(); }
  /// The last receive ended by its time-out.
  [[nodiscard]] bool timedOut() const { return late; }

 private:
  explicit ControlClient(FrameSocket connected) : socket(std::move(connected)) {}

  FrameSocket socket;
  bool late = false;
};

}  // namespace virtualmac
