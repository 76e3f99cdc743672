#include "Tests/tin/objects/Probe.h"
#import "Tests/tin/services/Greetings.h"

// A client of that service. It writes down what it hears.

@protocol Farewells
- (void)wave;
@end

namespace {

NSXPCConnection* connection = nil;
std::string heard;
void (^noReply)(NSData*) = nil;

void hear(const std::string& word) { heard += (heard.empty() ? "" : ", ") + word; }

void hearError(const char* from, NSError* error) {
  hear(std::string(from) + " " + error.domain.UTF8String + " " + std::to_string(error.code));
}

NSXPCInterface* greetings() {
  NSXPCInterface* interface = [NSXPCInterface interfaceWithProtocol:@protocol(Greetings)];
  [interface setClasses:[NSSet setWithObjects:[NSError class], [NSString class], nil]
            forSelector:@selector(setLimit:reply:)
          argumentIndex:1
                ofReply:YES];
  return interface;
}

NSXPCConnection* makeConnection() {
  return [[NSXPCConnection alloc] initWithMachServiceName:@"com.example.greeter"
                                                  options:NSXPCConnectionPrivileged];
}

id proxy() {
  return [connection remoteObjectProxyWithErrorHandler:^(NSError* error) {
    hearError("failure", error);
  }];
}

id waitingProxy() {
  return [connection synchronousRemoteObjectProxyWithErrorHandler:^(NSError* error) {
    hearError("failure", error);
  }];
}

}  // namespace

ACTION(openClient) {
  @autoreleasepool {
    connection = makeConnection();
    connection.remoteObjectInterface = greetings();
    [connection setCodeSigningRequirement:@"parses"];
    connection.interruptionHandler = ^{
      hear("interrupted");
    };
    connection.invalidationHandler = ^{
      hear("invalidated");
    };
    [connection resume];
  }
}
ACTION(closeClient) {
  @autoreleasepool {
    [connection invalidate];
  }
}
ACTION(dropClient) { connection = nil; }
ACTION(askForGreeting) {
  @autoreleasepool {
    [proxy() greetWithReply:^(NSData* text) {
      hear("text " + std::string(static_cast<const char*>(text.bytes), text.length));
    }];
  }
}
ACTION(askForLimit) {
  @autoreleasepool {
    [proxy() setLimit:200
                reply:^(BOOL success, NSError* error) {
                  hear(success ? "done" : "not done");
                  if (error != nil) hearError("because", error);
                }];
  }
}
ACTION(askForSwitch) {
  @autoreleasepool {
    [proxy() setSwitch:YES
                 reply:^(uint64_t caller) {
                   hear("caller " + std::to_string(caller));
                 }];
  }
}
ACTION(askForSwitchAndWait) {
  @autoreleasepool {
    [waitingProxy() setSwitch:YES
                        reply:^(uint64_t caller) {
                          hear("caller " + std::to_string(caller));
                        }];
    hear("and on");
  }
}
ACTION(leaveServiceAndWait) {
  @autoreleasepool {
    [waitingProxy() leave];
    hear("and on");
  }
}
ACTION(leaveService) {
  @autoreleasepool {
    [proxy() leave];
  }
}
ACTION(leaveServiceUnheard) {
  @autoreleasepool {
    [connection.remoteObjectProxy leave];
  }
}

PROBE(probeHeardByClient) {
  failure = heard;
  heard.clear();
}
PROBE(probeMessageThatTheProtocolLacks) {
  @autoreleasepool {
    bool isRaised = false;
    @try {
      [(id<Farewells>)proxy() wave];
    } @catch (NSException* raised) {
      isRaised = [raised.name isEqual:NSInvalidArgumentException];
    }
    EXPECT(isRaised);
  }
}
PROBE(probeRequirementThatDoesNotParse) {
  @autoreleasepool {
    connection = makeConnection();
    bool isRaised = false;
    @try {
      [connection setCodeSigningRequirement:@"(("];
    } @catch (NSException* raised) {
      isRaised = [raised.name isEqual:NSInvalidArgumentException];
    }
    EXPECT(isRaised);
    connection = nil;
  }
}

ACTION(breakMessageBeforeResume) {
  connection = makeConnection();
  connection.remoteObjectInterface = greetings();
  [proxy() leave];
}
ACTION(breakMessageWithoutInterface) {
  connection = makeConnection();
  [connection resume];
  [proxy() leave];
}
ACTION(breakMessageWithoutReplyBlock) { [proxy() greetWithReply:noReply]; }
ACTION(breakExportOfClient) { connection.exportedInterface = greetings(); }
ACTION(breakSecondRequirement) {
  connection = makeConnection();
  [connection setCodeSigningRequirement:@"parses"];
  [connection setCodeSigningRequirement:@"parses"];
}
ACTION(breakInvalidationBeforeResume) {
  connection = makeConnection();
  [connection invalidate];
}
