#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Platform/RootPowerDomain.h"
#include "VirtualMac/Machine/PowerManagement.h"

namespace virtualmac {

/// One process's registrations with the root power domain. Callbacks stay in the process: messages
/// go to a handler that finds the callback by the notifier. A message whose source is on no run
/// loop waits in its port; a destroyed port loses what waits.
class RootDomainClient final : public korvel::RootPowerDomain {
 public:
  RootDomainClient(PowerManagement& manager, std::int32_t processID);

  /// The handler of every message on an attached source; set once, by the owner of the process.
  void setMessageHandler(PowerManagement::Deliver handler) { deliver = std::move(handler); }

  korvel::ConnectionRef registerForSystemPower(void* refcon, korvel::HandleRef& port,
                                               korvel::InterestCallback callback,
                                               korvel::ObjectRef& notifier) override;
  korvel::HandleRef notificationPortGetRunLoopSource(korvel::HandleRef port) override;
  korvel::HandleRef mainRunLoop() override;
  void runLoopAddSource(korvel::HandleRef runLoop, korvel::HandleRef source) override;
  void runLoopRemoveSource(korvel::HandleRef runLoop, korvel::HandleRef source) override;
  korvel::KernReturn allowPowerChange(korvel::ConnectionRef rootPort,
                                      std::intptr_t notificationID) override;
  korvel::KernReturn deregisterForSystemPower(korvel::ObjectRef& notifier) override;
  korvel::KernReturn serviceClose(korvel::ConnectionRef rootPort) override;
  void notificationPortDestroy(korvel::HandleRef port) override;

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
