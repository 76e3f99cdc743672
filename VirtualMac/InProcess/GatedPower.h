#pragma once

#include <functional>
#include <map>
#include <memory>

#include "Base/Task.h"
#include "Platform/PowerAssertions.h"
#include "Platform/PowerSettings.h"
#include "Platform/RootPowerDomain.h"
#include "VirtualMac/Machine/HelperProcess.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

class GatedPowerAssertions final : public korvel::PowerAssertions {
 public:
  GatedPowerAssertions(CallGate& callGate, HelperProcess& owner) : gate(callGate), process(owner) {}
  korvel::KernReturn createWithProperties(const korvel::PropertyValue& properties,
                                          std::uint32_t& id) override;
  korvel::KernReturn release(std::uint32_t id) override;

 private:
  CallGate& gate;
  HelperProcess& process;
};

class GatedPowerSettings final : public korvel::PowerSettings {
 public:
  GatedPowerSettings(CallGate& callGate, HelperProcess& owner) : gate(callGate), process(owner) {}
  korvel::KernReturn setSystemPowerSetting(std::string_view key, bool value) override;
  korvel::PropertyValue copySystemPowerSettings() override;

 private:
  CallGate& gate;
  HelperProcess& process;
};

/// Messages come as work for the main thread, so that they wait while it is busy. A message on its
/// way to a registration that is given back meanwhile is dropped.
class GatedRootPowerDomain final : public korvel::RootPowerDomain {
 public:
  using PostToMain = std::function<void(korvel::Task)>;
  GatedRootPowerDomain(CallGate& callGate, HelperProcess& owner, PostToMain post);

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

 private:
  struct Interest {
    korvel::InterestCallback callback = nullptr;
    void* refcon = nullptr;
  };
  using Interests = std::map<korvel::ObjectRef, Interest>;

  CallGate& gate;
  HelperProcess& process;
  std::shared_ptr<Interests> interests = std::make_shared<Interests>();
};

}  // namespace virtualmac
