#pragma once

#include <cstdint>
#include <functional>

#include "Logger.h"
#include "Platform/RootPowerDomain.h"

namespace korvel {

/// Turns the root power domain's notifications into two callbacks: before the system sleeps, and
/// when it has powered on. Never objects to sleep. Callbacks run on the main thread.
///
/// The registration holds this object's bare address, so it must not move or die while registered;
/// the destructor unregisters.
class SystemPowerObserver {
 public:
  SystemPowerObserver(RootPowerDomain& rootDomain, Logger logger, std::function<void()> willSleep,
                      std::function<void()> didWake);
  ~SystemPowerObserver();
  SystemPowerObserver(const SystemPowerObserver&) = delete;
  SystemPowerObserver& operator=(const SystemPowerObserver&) = delete;

  /// Registers. A second call is logged and ignored; a failure is logged, and the helper runs on
  /// without sleep handling.
  void start();
  /// Undoes start(). Does nothing when not registered.
  void stop();

 private:
  static void cCallback(void* refcon, ObjectRef service, std::uint32_t messageType,
                        std::uintptr_t messageArgument);
  void handle(std::uint32_t messageType, std::uintptr_t argument);

  RootPowerDomain& domain;
  Logger log;
  std::function<void()> onWillSleep;
  std::function<void()> onDidWake;
  ConnectionRef rootPort = 0;
  HandleRef notifyPort = 0;
  ObjectRef notifierObject = 0;
  HandleRef notificationRunLoop;
  HandleRef notificationSource = 0;
};

}  // namespace korvel
