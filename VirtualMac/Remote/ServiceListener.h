#pragma once

#include <memory>
#include <string>

#include "Platform/XPCListener.h"
#include "VirtualMac/Remote/HelperHost.h"

namespace virtualmac {

class EventThread;

/// The helper's service over the listening socket that the machine's launchd owns and hands in.
///
/// The thread of events accepts, and the delegate decides there. From `resume` on each connection
/// belongs to one of two other threads, which reads, delivers and answers its messages in order and
/// runs its handlers. The first client starts the one of them, the second the other. A call that
/// blocks holds up the other connections of its thread; on a Mac each connection has a queue of its
/// own. The kernel tells the peer's pid, and the machine knows the program with that pid. The
/// requirement is evaluated when the first message comes, before it is delivered.
///
/// Failure. One connection ends, with a line in the machine's journal, when its peer goes away,
/// does not satisfy the requirement, or sends a message that is malformed, oversized, unknown to
/// the protocol or of the wrong type; also when the helper answers with a class that the interface
/// does not allow. Once `ServiceListener::unansweredLimit` calls of a peer are without a delivered
/// reply, nothing more is read from it until it reads its replies.
class ServiceListener final : public korvel::XPCService {
 public:
  static constexpr int unansweredLimit = 32;

  /// `listeningSocket` serves `machServiceName`; -1: launchd handed in no socket.
  ServiceListener(std::string machServiceName, int listeningSocket, HelperHost& machineHost,
                  EventThread& events);
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
