#import "TinMac/Frameworks/XPCConnection.h"

#include <string>

#import "TinMac/Frameworks/Arguments.h"
#import "TinMac/Frameworks/Protocols.h"
#import "TinMac/Frameworks/XPCClient.h"
#import "TinMac/Frameworks/XPCDelivery.h"
#import "TinMac/Frameworks/XPCEndpoint.h"
#import "TinMac/Frameworks/XPCInterface.h"
#import "TinMac/Frameworks/XPCKept.h"

using namespace tinmac;

namespace {

void runHandler(void* context) noexcept {
  const id handler = claim(context);
  if (handler == nil) return;
  ((void (^)(void))handler)();
  [handler release];
}

}  // namespace

@implementation NSXPCConnection {
  /// Of a connection to a service; the other variables belong to one that a listener was asked for.
  TinClientSide* client;
  TinConnection* open;
  NSXPCInterface* interface;
  id exported;
  bool hasRequirement;
  bool isResumed;
}

- (instancetype)initForAccepting:(TinConnection*)accepted {
  self = [super init];
  open = accepted;
  return self;
}

- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options {
  expectKind(name, [NSString class], "initWithMachServiceName:options:");
  expectNumber<NSUInteger>(options, NSXPCConnectionPrivileged, "initWithMachServiceName:options:");
  self = [super init];
  client = [[TinClientSide alloc] initWithService:name];
  return self;
}

- (instancetype)initWithListenerEndpoint:(NSXPCListenerEndpoint*)endpoint {
  expectKind(endpoint, [NSXPCListenerEndpoint class], "initWithListenerEndpoint:");
  self = [super init];
  client = [[TinClientSide alloc] initWithEndpoint:endpoint->number];
  return self;
}

- (TinClientSide*)clientFor:(const char*)message {
  if (client == nil) trap("a listener's connection sends no messages of its own", message);
  return client;
}

- (void)setRemoteObjectInterface:(NSXPCInterface*)given {
  [[self clientFor:"setRemoteObjectInterface:"] setRemote:given];
}

- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError*))handler {
  return autoreleased(
      makeProxy([self clientFor:"remoteObjectProxyWithErrorHandler:"], self, handler));
}

- (id)synchronousRemoteObjectProxyWithErrorHandler:(void (^)(NSError*))handler {
  TinProxy* proxy =
      makeProxy([self clientFor:"synchronousRemoteObjectProxyWithErrorHandler:"], self, handler);
  proxy->waits = true;
  return autoreleased(proxy);
}

- (id)remoteObjectProxy {
  return autoreleased(makeProxy([self clientFor:"remoteObjectProxy"], self, nil));
}

- (void)invalidate {
  [[self clientFor:"invalidate"] invalidate];
}

- (void)endAcceptance {
  open = nullptr;
}

- (BOOL)wasResumed {
  return isResumed;
}

- (void)dealloc {
  [client release];
  [interface release];
  [exported release];
  [super dealloc];
}

/// The machine's connection, which is changed only while the delegate decides on it.
- (TinConnection*)openFor:(const char*)message {
  if (client != nil) trap("a client that exports an object is not built", message);
  if (open == nullptr)
    trap("a connection is changed after its listener's delegate decided", message);
  if (isResumed) trap("a connection is changed after it was resumed", message);
  return open;
}

- (void)setExportedInterface:(NSXPCInterface*)given {
  [self openFor:"setExportedInterface:"];
  expectKind(given, [NSXPCInterface class], "setExportedInterface:");
  [given retain];
  [interface release];
  interface = given;
}

- (void)setExportedObject:(id)given {
  [self openFor:"setExportedObject:"];
  [given retain];
  [exported release];
  exported = given;
}

- (void)setHandler:(id)handler kind:(TinHandlerKind)kind {
  if (client != nil) return [client setHandler:handler ofInterruption:kind == TinInterruption];
  TinConnection* connection = [self openFor:"a handler"];
  if (handler == nil) trap("taking a connection's handler away is not built", "nil");
  const id block = [handler copy];
  const TinHandler kept{.context = keep(block), .run = runHandler, .dropped = letGo};
  [block release];
  tinConnectionHandler(connection, static_cast<std::uint32_t>(kind), &kept);
}

- (void)setInvalidationHandler:(void (^)(void))handler {
  [self setHandler:handler kind:TinInvalidation];
}

- (void)setInterruptionHandler:(void (^)(void))handler {
  [self setHandler:handler kind:TinInterruption];
}

- (void)setCodeSigningRequirement:(NSString*)requirement {
  if (client != nil) return [client setRequirement:requirement];
  TinConnection* connection = [self openFor:"setCodeSigningRequirement:"];
  expectKind(requirement, [NSString class], "setCodeSigningRequirement:");
  if (hasRequirement) {
    trap("a connection's code-signing requirement is set twice", utf8(requirement));
  }
  const std::string text(utf8(requirement));
  if (tinConnectionRequirement(connection, text.c_str()) == 0) {
    raise("NSInvalidArgumentException", "the code-signing requirement does not parse: " + text);
  }
  hasRequirement = true;
}

- (void)resume {
  if (client != nil) return [client resumeFor:self];
  if (isResumed) {
    tinBooksNote("a connection is resumed that is not suspended", "");
    return;
  }
  TinConnection* connection = [self openFor:"resume"];
  if (interface == nil || exported == nil) {
    trap("a connection is resumed that exports nothing", "resume");
  }
  TinExport* given = [[TinExport alloc] init];
  given->connection = [self retain];
  given->object = [exported retain];
  given->protocol = interface.protocol;
  const TinExported exports = exportedAs(keep(given));
  [given release];
  tinConnectionExport(connection, protocolName(interface.protocol), &exports);
  [interface tellReplyClassesTo:connection];
  isResumed = true;
  tinConnectionResume(connection);
}

- (void)activate {
  if (!isResumed) [self resume];
}

- (pid_t)processIdentifier {
  if (connectionOfCall() != self) {
    trap("a connection's process identifier is known during its calls only", "processIdentifier");
  }
  return tinCurrentPeer();
}

+ (NSXPCConnection*)currentConnection {
  return autoreleased([connectionOfCall() retain]);
}

@end
