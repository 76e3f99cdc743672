#pragma once

#include <memory>
#include <string>

#include "Platform/XPCListener.h"
#include "VirtualMac/Remote/HelperHost.h"

namespace virtualmac {

/// The helper's service over the listening socket that the machine's launchd owns and hands in.
///
/// Connections are accepted on one thread, and each one's messages read, delivered and answered, in
/// order, on one of a few others, where its handlers run too, as soon as it is resumed. So
/// connections share threads, and a call that blocks one holds up the others on it; on a Mac each
/// connection has a queue of its own. A peer's identity is its pid, which the kernel vouches for;
/// what that program is, the machine knows. The requirement is evaluated when the first message
/// comes, before it is delivered.
///
/// Failure. A connection ends, alone and with a line in the machine's journal, when its peer goes
/// away, is not what the requirement asks for, or sends what is malformed, oversized, unknown to
/// the protocol or of the wrong type; also when the helper answers with a class that the interface
/// does not allow. A peer that does not read its replies is not read from either, once
/// `ServiceListener::unansweredLimit` calls are without a delivered reply: it waits alone.
class ServiceListener final : public korvel::XPCService {
 public:
  static constexpr int unansweredLimit = 32;

  /// `listeningSocket` serves `machServiceName`; -1: launchd handed in nothing.
  ServiceListener(std::string machServiceName, int listeningSocket, HelperHost& machineHost);
  ~ServiceListener() override;

  std::unique_ptr<korvel::XPCListener> makeListener(std::string_view machServiceName) override;
  std::optional<std::int32_t> currentConnectionPid() override;

  class Threads;

 private:
  std::string service;
  int listening;
  HelperHost& host;
  std::unique_ptr<Threads> threads;
};

}  // namespace virtualmac
