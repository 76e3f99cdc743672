#import "TinMac/Frameworks/XPCConnection.h"

#include <string>

#import "TinMac/Frameworks/Protocols.h"
#import "TinMac/Frameworks/XPCDelivery.h"
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

- (void)endAcceptance {
  open = nullptr;
}

- (BOOL)wasResumed {
  return isResumed;
}

- (void)dealloc {
  [interface release];
  [exported release];
  [super dealloc];
}

/// The machine's connection, which is changed only while the delegate decides on it.
- (TinConnection*)openFor:(const char*)message {
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
