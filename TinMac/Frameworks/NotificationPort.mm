#include <IOKit/pwr_mgt/IOPMLib.h>

#include <atomic>
#include <map>

#import "TinMac/Frameworks/Arguments.h"
#include "TinMac/Frameworks/Lock.h"
#include "TinMac/Frameworks/PortRights.h"
#import "TinMac/Frameworks/RunLoop.h"

/// Kept after it was destroyed, so that a later use is seen.
struct IONotificationPort {
  std::uint64_t name = 0;
  TinRunLoopSource* source = nil;  ///< Made when it is first asked for.
  std::atomic<bool> isDestroyed = false;
};

namespace tinmac {

namespace {

constexpr const char* portBook = "IONotificationPort";

/// One program's interest in the root power domain. Kept for the process's life, because a message
/// for it may be on its way when it is given back.
struct Interest {
  void* refcon;
  IOServiceInterestCallback callback;
  IONotificationPort* port = nullptr;
  std::atomic<bool> isRegistered = true;
};

os_unfair_lock portsLock = OS_UNFAIR_LOCK_INIT;

std::map<io_object_t, Interest*>& interests() {
  static auto& byNotifier = *new std::map<io_object_t, Interest*>;
  return byNotifier;
}

void hear(void* context, std::uint32_t service, std::uint32_t messageType,
          std::uint64_t messageArgument) {
  const auto& interest = *static_cast<const Interest*>(context);
  if (!interest.isRegistered || interest.port->isDestroyed) return;
  // The pointer-sized argument is the notification's number itself.
  interest.callback(interest.refcon, service, messageType,
                    reinterpret_cast<void*>(messageArgument));
}

IONotificationPort& usable(IONotificationPortRef port, const char* function) {
  expectPlace(port, function);
  if (port->isDestroyed) trap("a notification port is used after it was destroyed", function);
  return *port;
}

}  // namespace

}  // namespace tinmac

using namespace tinmac;

TIN_EXPORT io_connect_t IORegisterForSystemPower(void* refcon, IONotificationPortRef* port,
                                                 IOServiceInterestCallback callback,
                                                 io_object_t* notifier) {
  expectPlace(port, __func__);
  expectPlace(notifier, __func__);
  if (callback == nullptr) trap("an interest has no callback", __func__);
  auto* made = new IONotificationPort;
  auto* interest = new Interest{.refcon = refcon, .callback = callback, .port = made};
  const io_connect_t connection = tinPowerRegister(interest, hear, &made->name, notifier);
  if (connection == IO_OBJECT_NULL) {
    *notifier = IO_OBJECT_NULL;
    interest->isRegistered = false;
    return connection;
  }
  holdConnection(connection);
  holdObject(*notifier);
  tinBooksCount(portBook, 1);
  {
    const Locked locked(portsLock);
    interests()[*notifier] = interest;
  }
  *port = made;
  return connection;
}

TIN_EXPORT IOReturn IODeregisterForSystemPower(io_object_t* notifier) {
  expectPlace(notifier, __func__);
  dropObject(*notifier, __func__);
  {
    const Locked locked(portsLock);
    const auto found = interests().find(*notifier);
    if (found == interests().end()) trap("no notifier of the root power domain", __func__);
    found->second->isRegistered = false;
    interests().erase(found);
  }
  return tinPowerDeregister(notifier);
}

TIN_EXPORT IOReturn IOAllowPowerChange(io_connect_t connection, intptr_t notification) {
  expectConnection(connection, __func__);
  return tinPowerAllow(connection, notification);
}

TIN_EXPORT CFRunLoopSourceRef IONotificationPortGetRunLoopSource(IONotificationPortRef port) {
  IONotificationPort& asked = usable(port, __func__);
  const std::uint64_t name = tinPortSource(asked.name);
  if (name == 0) return nullptr;
  const Locked locked(portsLock);
  if (asked.source == nil) {
    asked.source = [[TinRunLoopSource alloc] init];
    asked.source->name = name;
    asked.source->isValid = true;
  }
  return (CFRunLoopSourceRef)asked.source;
}

TIN_EXPORT void IONotificationPortDestroy(IONotificationPortRef port) {
  IONotificationPort& destroyed = usable(port, __func__);
  destroyed.isDestroyed = true;
  tinBooksCount(portBook, -1);
  if (destroyed.source != nil) {
    if (isOnRunLoop(destroyed.source)) {
      tinBooksNote("a notification port is destroyed while its source is on a run loop", "");
    }
    invalidate(destroyed.source);
    [destroyed.source release];
    destroyed.source = nil;
  }
  tinPortDestroy(destroyed.name);
}
