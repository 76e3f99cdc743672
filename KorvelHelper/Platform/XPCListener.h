#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "Platform/XPCConnection.h"

namespace korvel {

/// Decides on each new connection, on the listener's own thread.
class XPCListenerDelegate {
 public:
  virtual ~XPCListenerDelegate() = default;
  /// True accepts. A refused connection is dropped; it was not resumed and has no handlers.
  virtual bool shouldAcceptNewConnection(XPCConnection& connection) = 0;
};

/// Publishes one Mach service. Made suspended.
class XPCListener {
 public:
  virtual ~XPCListener() = default;
  /// The delegate is held weakly, as the platform does.
  virtual void setDelegate(const std::shared_ptr<XPCListenerDelegate>& delegate) = 0;
  virtual void resume() = 0;
};

/// NSXPC as the helper uses it.
class XPCService {
 public:
  virtual ~XPCService() = default;
  /// [[NSXPCListener alloc] initWithMachServiceName:name].
  virtual std::unique_ptr<XPCListener> makeListener(std::string_view machServiceName) = 0;
  /// [NSXPCConnection currentConnection].processIdentifier; none outside a protocol call.
  virtual std::optional<std::int32_t> currentConnectionPid() = 0;
};

}  // namespace korvel
