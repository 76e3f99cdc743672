#import "Tests/tin/services/Greetings.h"

// A listener without a name, and a client of it.

namespace {

NSXPCListener* listener = nil;
NSXPCConnection* connection = nil;

NSXPCListener* makePublished() {
  return [[NSXPCListener alloc] initWithMachServiceName:@"com.example.greeter"];
}

}  // namespace

ACTION(listenWithin) {
  @autoreleasepool {
    listener = [NSXPCListener anonymousListener];
    [listener resume];
  }
}
ACTION(connectWithin) {
  @autoreleasepool {
    connection = [[NSXPCConnection alloc] initWithListenerEndpoint:listener.endpoint];
    [connection resume];
  }
}
ACTION(endListener) {
  @autoreleasepool {
    [listener invalidate];
  }
}
ACTION(dropListener) {
  listener = nil;
  connection = nil;
}

ACTION(breakEndpointBeforeResume) {
  listener = [NSXPCListener anonymousListener];
  connection = [[NSXPCConnection alloc] initWithListenerEndpoint:listener.endpoint];
}
ACTION(breakEndpointOfService) {
  listener = makePublished();
  connection = [[NSXPCConnection alloc] initWithListenerEndpoint:listener.endpoint];
}
ACTION(breakEndBeforeResume) {
  listener = [NSXPCListener anonymousListener];
  [listener invalidate];
}
ACTION(breakEndOfService) {
  listener = makePublished();
  [listener invalidate];
}
ACTION(breakRequirementWithin) {
  connection = [[NSXPCConnection alloc] initWithListenerEndpoint:listener.endpoint];
  [connection setCodeSigningRequirement:@"parses"];
}
