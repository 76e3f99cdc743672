#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/XPCListener.h"
#include "VirtualMac/InProcess/ServiceEndpoint.h"
#include "VirtualMac/Machine/ConnectionBreak.h"
#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Schedule/Observer.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

class CodeSignatures;
class InProcessListener;
class ListenerCore;
class PeerConnection;

/// Shared by all XPC objects of one process.
struct XPCSurroundings {
  Scheduler& scheduler;
  ThreadGroup& process;
  ServiceEndpoint& endpoint;
  const CodeSignatures& signatures;
  Journal& journal;
  std::function<void(std::string)> reportViolation;
  std::string_view serviceName;  ///< The one Mach service that launchd knows.
  const ScheduleObservers& observers;
  /// The machine's own: the moment at which new connections break.
  const std::optional<ConnectionBreak>& connectionsBreak;
};

/// NSXPC for one helper process: the listener and each connection have a thread of their own.
class InProcessXPC final : public korvel::XPCService {
 public:
  explicit InProcessXPC(XPCSurroundings surroundings);
  ~InProcessXPC() override;

  std::unique_ptr<korvel::XPCListener> makeListener(std::string_view machServiceName) override;
  std::optional<std::int32_t> currentConnectionPid() override;

  /// Drops all connections, as the kernel does when a process dies.
  void processGone();

 private:
  friend class InProcessListener;
  friend class ListenerCore;
  friend class PeerConnection;

  XPCSurroundings around;
  std::shared_ptr<Lane> listenerLane;
  std::vector<std::shared_ptr<PeerConnection>> connections;
};

}  // namespace virtualmac
