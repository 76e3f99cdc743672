#pragma once

#include <cstdint>

#include "Platform/KernelTypes.h"

namespace korvel {

/// An IOKit interest callback: the reference constant, the service, the message and its argument.
using InterestCallback = void (*)(void* refcon, ObjectRef service, std::uint32_t messageType,
                                  std::uintptr_t messageArgument);

/// The root power domain's notifications, call for call. The callback runs on the thread of the run
/// loop that the source is added to.
class RootPowerDomain {
 public:
  virtual ~RootPowerDomain() = default;
  /// IORegisterForSystemPower(refcon, &port, callback, &notifier). 0: failed; then `notifier` is 0
  /// and `port` is as it was.
  virtual ConnectionRef registerForSystemPower(void* refcon, HandleRef& port,
                                               InterestCallback callback, ObjectRef& notifier) = 0;
  /// IONotificationPortGetRunLoopSource(port), borrowed from the port. 0: none.
  virtual HandleRef notificationPortGetRunLoopSource(HandleRef port) = 0;
  /// CFRunLoopGetMain().
  virtual HandleRef mainRunLoop() = 0;
  /// CFRunLoopAddSource(runLoop, source, kCFRunLoopDefaultMode).
  virtual void runLoopAddSource(HandleRef runLoop, HandleRef source) = 0;
  /// CFRunLoopRemoveSource(runLoop, source, kCFRunLoopDefaultMode).
  virtual void runLoopRemoveSource(HandleRef runLoop, HandleRef source) = 0;
  /// IOAllowPowerChange(rootPort, notificationID).
  virtual KernReturn allowPowerChange(ConnectionRef rootPort, std::intptr_t notificationID) = 0;
  /// IODeregisterForSystemPower(&notifier); zeroes `notifier`.
  virtual KernReturn deregisterForSystemPower(ObjectRef& notifier) = 0;
  /// IOServiceClose(rootPort).
  virtual KernReturn serviceClose(ConnectionRef rootPort) = 0;
  /// IONotificationPortDestroy(port).
  virtual void notificationPortDestroy(HandleRef port) = 0;
};

}  // namespace korvel
