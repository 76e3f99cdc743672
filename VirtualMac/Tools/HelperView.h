#pragma once

#include <expected>
#include <string>
#include <utility>

#include "VirtualMac/Server/ControlClient.h"
#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Tools/AppConnection.h"
#include "VirtualMac/Tools/StateText.h"

namespace virtualmac {

/// A connection to the helper together with the machine's door, through which its log is known. To
/// connect may arm the limit, so how it was before is asked first, and a look waits until the
/// helper has counted this client in: what it tells is true when it is told.
class HelperView {
 public:
  struct Look {
    std::string statePayload;
    std::string capabilitiesPayload;
    Told told;
  };

  static std::expected<HelperView, AppConnection::OpenError> open(const RootDirectory& root,
                                                                  const std::string& identity,
                                                                  double timeoutSeconds);

  /// Errors are one line for a person.
  std::expected<Look, std::string> look();
  /// Waits. True: the connection is still there afterwards.
  bool stayConnected(double seconds) { return helper.stayConnected(seconds); }

 private:
  HelperView(ControlClient machineDoor, AppConnection connected, Enforcement then, double patience)
      : machine(std::move(machineDoor)),
        helper(std::move(connected)),
        before(std::move(then)),
        timeoutSeconds(patience) {}

  void waitUntilCounted();

  ControlClient machine;
  AppConnection helper;
  Enforcement before;
  double timeoutSeconds;
  std::string capabilities;  ///< As sent at the first look; the helper finds them once.
};

}  // namespace virtualmac
