#pragma once

#include <expected>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Remote/FrameSocket.h"
#include "VirtualMac/Remote/XPCMessages.h"
#include "VirtualMac/Server/ControlClient.h"
#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// A client of the helper: the application's end of one connection. It is given a signing identity
/// by the machine for as long as it lives. Replies are held against the same interface as the
/// helper's. Errors are one line for a person.
class AppConnection {
 public:
  struct OpenError {
    std::string text;
    bool isUsage = false;  ///< The machine knows no such identity.
  };
  /// The text of the error when the helper has hung up.
  static constexpr const char* cutOff = "the helper ended the connection";
  /// The helper is started when it does not run; nothing is known of that here.
  static std::expected<AppConnection, OpenError> open(const RootDirectory& root,
                                                      const std::string& identity);

  /// Sends a call and waits for its reply, `timeoutSeconds` real seconds at most. A Boolean
  /// `argument` is 0 or 1; 0 is given where none is taken. An operation without a reply returns
  /// nothing as soon as the helper has ended the connection.
  std::expected<std::vector<XPCValue>, std::string> call(const korvel::Operation& operation,
                                                         std::uint8_t argument,
                                                         double timeoutSeconds);
  /// Waits. True: the connection is still there afterwards.
  [[nodiscard]] bool stayConnected(double seconds) const { return socket.staysOpen(seconds); }
  /// Takes what came unasked: a reply that was late, the end. True: the connection is still there.
  [[nodiscard]] bool isThere();
  /// Why the connection is over; none: it is not, as far as anybody has looked.
  [[nodiscard]] const std::optional<std::string>& ending() const { return ended; }
  /// To wait for, beside other descriptors: it can be read when `isThere` has something to take.
  [[nodiscard]] int descriptor() const { return socket.descriptor(); }

 private:
  AppConnection(FrameSocket connected, ControlClient machineDoor)
      : socket(std::move(connected)), machine(std::move(machineDoor)) {}

  /// Ends it from this side, when the helper has not. Returns the reason.
  std::unexpected<std::string> end(const std::string& reason);
  std::unexpected<std::string> failed(const FrameSocket::Error& error);

  FrameSocket socket;
  ControlClient machine;  ///< Held: the identity lasts as long as it.
  std::uint32_t lastTicket = 0;
  std::optional<std::string> ended;
};

}  // namespace virtualmac
