#import <Foundation/Foundation.h>

#include <utility>

#include "macOS/Adapters.h"
#import "macOS/ExportedObject.h"
#import "macOS/FoundationConversion.h"

namespace korvel::macos {

namespace {

/// The handler as a block with a pool of its own. The connection keeps the block until it is
/// invalidated, and drops it then. Taken by value, because a block keeps a reference as it is.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
dispatch_block_t handlerBlock(std::function<void()> handler) {
  return ^{
    @autoreleasepool {
      handler();
    }
  };
}

/// A new connection for as long as the delegate decides on it. A resumed connection keeps itself
/// alive until it is invalidated, so nothing is stored.
class SystemXPCConnection final : public XPCConnection {
 public:
  explicit SystemXPCConnection(NSXPCConnection* newConnection) : connection(newConnection) {}

  void setExportedInterface(const XPCInterface& interface) override {
    connection.exportedInterface = makeNSXPCInterface(interface);
  }

  void setExportedObject(std::shared_ptr<KorvelHelperProtocol> object) override {
    connection.exportedObject = [[KorvelExportedObject alloc] initWithCore:std::move(object)];
  }

  bool setCodeSigningRequirement(const std::string& requirement) override {
    @try {
      [connection setCodeSigningRequirement:makeNSString(requirement)];
      return true;
    } @catch (NSException* unparseable) {
      return false;
    }
  }

  void setInvalidationHandler(std::function<void()> handler) override {
    connection.invalidationHandler = handlerBlock(std::move(handler));
  }

  void setInterruptionHandler(std::function<void()> handler) override {
    connection.interruptionHandler = handlerBlock(std::move(handler));
  }

  void resume() override { [connection resume]; }

 private:
  NSXPCConnection* connection;
};

}  // namespace

}  // namespace korvel::macos

/// The listener's delegate as the platform knows it; asks the portable one.
@interface KorvelListenerBridge : NSObject <NSXPCListenerDelegate>
- (instancetype)init NS_UNAVAILABLE;
- (instancetype)initWithDelegate:(std::weak_ptr<korvel::XPCListenerDelegate>)weakDelegate
    NS_DESIGNATED_INITIALIZER;
@end

@implementation KorvelListenerBridge {
  std::weak_ptr<korvel::XPCListenerDelegate> delegate;
}

- (instancetype)initWithDelegate:(std::weak_ptr<korvel::XPCListenerDelegate>)weakDelegate {
  self = [super init];
  if (self != nil) delegate = std::move(weakDelegate);
  return self;
}

- (BOOL)listener:(NSXPCListener*)listener
    shouldAcceptNewConnection:(NSXPCConnection*)newConnection {
  @autoreleasepool {
    const std::shared_ptr<korvel::XPCListenerDelegate> deciding = delegate.lock();
    if (deciding == nullptr) return NO;
    korvel::macos::SystemXPCConnection connection(newConnection);
    return deciding->shouldAcceptNewConnection(connection);
  }
}

@end

namespace korvel::macos {

namespace {

/// Holds the delegate, which NSXPCListener itself keeps weakly.
class SystemXPCListener final : public XPCListener {
 public:
  explicit SystemXPCListener(NSXPCListener* created) : listener(created) {}

  void setDelegate(const std::shared_ptr<XPCListenerDelegate>& delegate) override {
    @autoreleasepool {
      bridge = [[KorvelListenerBridge alloc] initWithDelegate:delegate];
      listener.delegate = bridge;
    }
  }

  void resume() override {
    @autoreleasepool {
      [listener resume];
    }
  }

 private:
  NSXPCListener* listener;
  KorvelListenerBridge* bridge = nil;
};

class SystemXPCService final : public XPCService {
 public:
  std::unique_ptr<XPCListener> makeListener(std::string_view machServiceName) override {
    @autoreleasepool {
      return std::make_unique<SystemXPCListener>(
          [[NSXPCListener alloc] initWithMachServiceName:makeNSString(machServiceName)]);
    }
  }

  std::optional<std::int32_t> currentConnectionPid() override {
    @autoreleasepool {
      NSXPCConnection* current = [NSXPCConnection currentConnection];
      if (current == nil) return std::nullopt;
      return current.processIdentifier;
    }
  }
};

}  // namespace

std::unique_ptr<XPCService> makeXPCService() { return std::make_unique<SystemXPCService>(); }

}  // namespace korvel::macos
