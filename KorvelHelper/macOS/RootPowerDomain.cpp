#include "Platform/RootPowerDomain.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOMessage.h>
#include <IOKit/pwr_mgt/IOPMLib.h>

#include <map>

#include "macOS/Adapters.h"
#include "macOS/AutoreleasePool.h"
#include "macOS/CFReference.h"

namespace korvel::macos {

namespace {

static_assert(kIOMessageCanSystemSleep == ioMessageCanSystemSleep);
static_assert(kIOMessageSystemWillSleep == ioMessageSystemWillSleep);
static_assert(kIOMessageSystemWillNotSleep == ioMessageSystemWillNotSleep);
static_assert(kIOMessageSystemHasPoweredOn == ioMessageSystemHasPoweredOn);
static_assert(kIOMessageSystemWillPowerOn == ioMessageSystemWillPowerOn);

/// The receiver of one registration's notifications.
struct Registration {
  InterestCallback callback;
  void* refcon;
};

struct Notification {
  const Registration& registration;
  ObjectRef service;
  std::uint32_t messageType;
  std::uintptr_t messageArgument;
};

void deliver(void* context) {
  const auto& notification = *static_cast<const Notification*>(context);
  notification.registration.callback(notification.registration.refcon, notification.service,
                                     notification.messageType, notification.messageArgument);
}

void onInterest(void* refcon, io_service_t service, natural_t messageType, void* messageArgument) {
  // The pointer-sized argument is the notification's number itself, not the address of one.
  Notification notification{*static_cast<const Registration*>(refcon), service, messageType,
                            reinterpret_cast<std::uintptr_t>(messageArgument)};
  runInAutoreleasePool(deliver, &notification);
}

IONotificationPortRef notificationPort(HandleRef port) {
  return reinterpret_cast<IONotificationPortRef>(port);
}

/// The root power domain through IOKit. A registration is kept here until its port is destroyed:
/// only then is it certain that no notification for it is still on the way.
class SystemRootPowerDomain final : public RootPowerDomain {
 public:
  ConnectionRef registerForSystemPower(void* refcon, HandleRef& port, InterestCallback callback,
                                       ObjectRef& notifier) override {
    auto registration = std::make_unique<Registration>(callback, refcon);
    IONotificationPortRef createdPort = nullptr;
    io_object_t createdNotifier = IO_OBJECT_NULL;
    const io_connect_t connection =
        IORegisterForSystemPower(registration.get(), &createdPort, onInterest, &createdNotifier);
    notifier = createdNotifier;
    if (connection == IO_OBJECT_NULL) return connection;
    port = reinterpret_cast<HandleRef>(createdPort);
    registrations.insert_or_assign(port, std::move(registration));
    return connection;
  }

  HandleRef notificationPortGetRunLoopSource(HandleRef port) override {
    return handle(IONotificationPortGetRunLoopSource(notificationPort(port)));
  }

  HandleRef mainRunLoop() override { return handle(CFRunLoopGetMain()); }

  void runLoopAddSource(HandleRef runLoop, HandleRef source) override {
    CFRunLoopAddSource(borrowed<CFRunLoopRef>(runLoop), borrowed<CFRunLoopSourceRef>(source),
                       kCFRunLoopDefaultMode);
  }

  void runLoopRemoveSource(HandleRef runLoop, HandleRef source) override {
    CFRunLoopRemoveSource(borrowed<CFRunLoopRef>(runLoop), borrowed<CFRunLoopSourceRef>(source),
                          kCFRunLoopDefaultMode);
  }

  KernReturn allowPowerChange(ConnectionRef rootPort, std::intptr_t notificationID) override {
    return IOAllowPowerChange(rootPort, notificationID);
  }

  KernReturn deregisterForSystemPower(ObjectRef& notifier) override {
    return IODeregisterForSystemPower(&notifier);
  }

  KernReturn serviceClose(ConnectionRef rootPort) override { return IOServiceClose(rootPort); }

  void notificationPortDestroy(HandleRef port) override {
    IONotificationPortDestroy(notificationPort(port));
    registrations.erase(port);
  }

 private:
  std::map<HandleRef, std::unique_ptr<Registration>> registrations;
};

}  // namespace

std::unique_ptr<RootPowerDomain> makeRootPowerDomain() {
  return std::make_unique<SystemRootPowerDomain>();
}

}  // namespace korvel::macos
