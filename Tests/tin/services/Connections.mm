#include <cstring>

#include "Tests/tin/objects/Probe.h"
#import "Tests/tin/services/Greetings.h"

// A service as a program publishes it.

namespace {

enum class Manner { Answer, Twice, Never, Throw, Later };
Manner manner = Manner::Answer;
NSString* requirement = @"parses";
bool accepts = true;
bool setsRequirementTwice = false;
bool heardOfTheEnd = false;
void (^keptReply)(NSData*) = nil;
Protocol* noProtocol = nil;

NSData* greeting() { return [NSData dataWithBytes:"hi" length:2]; }

}  // namespace

@interface Greeter : NSObject <Greetings>
@end
@implementation Greeter
- (void)greetWithReply:(void (^)(NSData* text))reply {
  if (manner == Manner::Never) return;
  if (manner == Manner::Throw) [NSXPCInterface interfaceWithProtocol:noProtocol];
  if (manner == Manner::Later) {
    keptReply = reply;
    return;
  }
  reply(greeting());
  if (manner == Manner::Twice) reply(greeting());
}
- (void)setLimit:(uint8_t)limit reply:(void (^)(BOOL success, NSError* _Nullable error))reply {
  if (limit == 255) return reply(YES, nil);
  reply(NO, [NSError errorWithDomain:@"limits" code:limit userInfo:nil]);
}
- (void)setSwitch:(BOOL)on reply:(void (^)(uint64_t caller))reply {
  reply(on ? static_cast<uint64_t>([NSXPCConnection currentConnection].processIdentifier) : 0);
}
- (void)leave {
  heardOfTheEnd = true;
}
@end

@interface Doorkeeper : NSObject <NSXPCListenerDelegate>
@end
@implementation Doorkeeper
- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)connection {
  @autoreleasepool {
    NSXPCInterface* interface = [NSXPCInterface interfaceWithProtocol:@protocol(Greetings)];
    NSMutableSet* classes = [NSMutableSet set];
    [classes addObject:[NSData class]];
    [interface setClasses:classes
              forSelector:@selector(greetWithReply:)
            argumentIndex:0
                  ofReply:YES];
    connection.exportedInterface = interface;
    connection.exportedObject = [[Greeter alloc] init];
    @try {
      [connection setCodeSigningRequirement:requirement];
    } @catch (NSException* unparseable) {
      return NO;
    }
    if (setsRequirementTwice) [connection setCodeSigningRequirement:@"parses"];
    connection.invalidationHandler = ^{
      heardOfTheEnd = true;
    };
    if (accepts) [connection resume];
    return accepts;
  }
}
@end

namespace {

NSXPCListener* listener = nil;
Doorkeeper* doorkeeper = nil;

}  // namespace

ACTION(publish) {
  @autoreleasepool {
    listener = [[NSXPCListener alloc] initWithMachServiceName:@"com.example.greeter"];
    doorkeeper = [[Doorkeeper alloc] init];
    listener.delegate = doorkeeper;
    [listener resume];
  }
}
ACTION(dismissDoorkeeper) { doorkeeper = nil; }
ACTION(refusePeers) { accepts = false; }
ACTION(requireNonsense) { requirement = @"(("; }
ACTION(requireTwice) { setsRequirementTwice = true; }
ACTION(answerTwice) { manner = Manner::Twice; }
ACTION(answerNever) { manner = Manner::Never; }
ACTION(answerLater) { manner = Manner::Later; }
ACTION(answerNow) {
  @autoreleasepool {
    keptReply(greeting());
    keptReply = nil;
  }
}
ACTION(throwInstead) { manner = Manner::Throw; }

PROBE(probeEnd) {
  failure = heardOfTheEnd ? "heard" : "not heard";
  heardOfTheEnd = false;
}

PROBE(probeOutsideOfCalls) { EXPECT([NSXPCConnection currentConnection] == nil); }

PROBE(probeInterfaceErrors) {
  @autoreleasepool {
    NSXPCInterface* interface = [NSXPCInterface interfaceWithProtocol:@protocol(Greetings)];
    NSMutableSet* classes = [NSMutableSet set];
    const auto isRefused = [&](SEL selector, NSUInteger index, BOOL ofReply) {
      @try {
        [interface setClasses:classes forSelector:selector argumentIndex:index ofReply:ofReply];
        return false;
      } @catch (NSException* refusal) {
        return true;
      }
    };
    EXPECT(!isRefused(@selector(setLimit:reply:), 1, YES));
    EXPECT(isRefused(@selector(setLimit:reply:), 0, YES));
    EXPECT(isRefused(@selector(setLimit:reply:), 2, YES));
    EXPECT(isRefused(@selector(setLimit:reply:), 0, NO));
    EXPECT(isRefused(@selector(leave), 0, YES));
    EXPECT(isRefused(@selector(init), 0, YES));
  }
}
