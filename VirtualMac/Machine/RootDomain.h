#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Platform/KernelTypes.h"
#include "VirtualMac/Machine/PowerManagement.h"

namespace virtualmac {

/// One process's registrations with the root power domain: the seam's calls, but for the callback,
/// which belongs to whoever runs the process. A message whose source is on no run loop waits in its
/// port; a destroyed port loses what waits.
class RootDomainClient {
 public:
  RootDomainClient(PowerManagement& manager, std::int32_t processID);

  /// What a message on an attached source does; the process's keeper sets it once.
  void setMessageHandler(PowerManagement::Deliver handler) { deliver = std::move(handler); }

  korvel::ConnectionRef registerForSystemPower(korvel::HandleRef& port,
                                               korvel::ObjectRef& notifier);
  korvel::HandleRef notificationPortGetRunLoopSource(korvel::HandleRef port);
  korvel::HandleRef mainRunLoop();
  void runLoopAddSource(korvel::HandleRef runLoop, korvel::HandleRef source);
  void runLoopRemoveSource(korvel::HandleRef runLoop, korvel::HandleRef source);
  korvel::KernReturn allowPowerChange(korvel::ConnectionRef rootPort, std::intptr_t notificationID);
  korvel::KernReturn deregisterForSystemPower(korvel::ObjectRef& notifier);
  korvel::KernReturn serviceClose(korvel::ConnectionRef rootPort);
  void notificationPortDestroy(korvel::HandleRef port);

  /// Registrations, connections and ports that were not given back.
  [[nodiscard]] std::size_t liveObjects() const;
  void dropAll();

 private:
  struct Registration {
    korvel::ConnectionRef rootPort = 0;
    korvel::HandleRef port = 0;
    korvel::HandleRef source = 0;
    korvel::ObjectRef notifier = 0;
    bool attached = false;
    std::vector<PowerMessage> waiting;  ///< Arrived while the source was on no run loop.
  };
  void arrive(const PowerMessage& message);
  void forgetSpent();

  PowerManagement& power;
  std::int32_t pid;
  PowerManagement::Deliver deliver;
  std::vector<Registration> registrations;
  std::uint32_t lastName = 0;
};

}  // namespace virtualmac
