// Both ends of connections in one process, beyond the messages of ExportedObjectTest: how such
// connections end, and what waits for what.
#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "Tests/tin/runner/Operator.h"
#import "macOS/ExportedObject.h"

namespace {

using tinmac::test::serveUntil;

struct Counts {
  std::atomic<int> asked = 0;
  std::atomic<int> serverEnds = 0;
  std::atomic<int> clientEnds = 0;
  std::atomic<int> interruptions = 0;
};

NSXPCInterface* helperInterface() {
  return [NSXPCInterface interfaceWithProtocol:@protocol(KorvelHelperProtocol)];
}

}  // namespace

/// Answers a ping, after it has done something.
@interface TinPinged : NSObject {
 @public
  void (^before)(void);
}
@end

@implementation TinPinged
- (void)pingWithReply:(void (^)(uint64_t))reply {
  if (before != nil) before();
  reply(7);
}
@end

/// Decides on clients, and counts what it hears of them.
@interface TinDecider : NSObject <NSXPCListenerDelegate> {
 @public
  std::shared_ptr<Counts> counts;
  TinPinged* exported;
  BOOL refuses;
}
@end

@implementation TinDecider
- (BOOL)listener:(NSXPCListener*)listener
    shouldAcceptNewConnection:(NSXPCConnection*)newConnection {
  @autoreleasepool {
    const std::shared_ptr<Counts> told = counts;
    ++told->asked;
    newConnection.exportedInterface = helperInterface();
    newConnection.exportedObject = exported;
    newConnection.interruptionHandler = ^{
      ++told->interruptions;
    };
    newConnection.invalidationHandler = ^{
      ++told->serverEnds;
    };
    [newConnection resume];
    return !refuses;
  }
}
@end

namespace {

class AnonymousListenerTest : public testing::Test {
 public:
  ~AnonymousListenerTest() override { [listener invalidate]; }

 protected:
  AnonymousListenerTest() {
    decider->counts = counts;
    decider->exported = [TinPinged new];
    listener.delegate = decider;
    [listener resume];
  }

  NSXPCConnection* connect() {
    NSXPCConnection* made = [[NSXPCConnection alloc] initWithListenerEndpoint:listener.endpoint];
    made.remoteObjectInterface = helperInterface();
    const std::shared_ptr<Counts> told = counts;
    made.interruptionHandler = ^{
      ++told->interruptions;
    };
    made.invalidationHandler = ^{
      ++told->clientEnds;
    };
    [made resume];
    return made;
  }
  /// The number that the ping is answered with, or the code of its error, negative.
  static std::int64_t ping(NSXPCConnection* connection) {
    __block std::int64_t heard = 0;
    [[connection synchronousRemoteObjectProxyWithErrorHandler:^(NSError* error) {
      heard = -error.code;
    }] pingWithReply:^(uint64_t number) {
      heard = static_cast<std::int64_t>(number);
    }];
    return heard;
  }
  /// Whether so many ends were told at either side.
  bool ended(int atClients, int atServer) {
    return serveUntil(
        [=, this] { return counts->clientEnds == atClients && counts->serverEnds == atServer; });
  }

  std::shared_ptr<Counts> counts = std::make_shared<Counts>();
  TinDecider* decider = [TinDecider new];
  NSXPCListener* listener = [NSXPCListener anonymousListener];
};

TEST_F(AnonymousListenerTest, TheClientsEndIsToldOnceAtBothEnds) {
  NSXPCConnection* connection = connect();
  EXPECT_EQ(ping(connection), 7);
  [connection invalidate];
  [connection invalidate];
  EXPECT_TRUE(ended(1, 1));
  EXPECT_EQ(ping(connection), -NSXPCConnectionInvalid);
  EXPECT_EQ(counts->asked, 1);
}

TEST_F(AnonymousListenerTest, TheListenersEndIsToldOnceAtBothEndsOfEachConnection) {
  NSXPCConnection* first = connect();
  NSXPCConnection* second = connect();
  EXPECT_EQ(ping(first), 7);
  EXPECT_EQ(ping(second), 7);
  EXPECT_EQ(counts->asked, 2);
  [listener invalidate];
  [listener invalidate];
  EXPECT_TRUE(ended(2, 2));
  EXPECT_EQ(ping(first), -NSXPCConnectionInvalid);
  EXPECT_EQ(counts->interruptions, 0);
}

TEST_F(AnonymousListenerTest, AnEndpointWhoseListenerHasEndedReachesNobody) {
  NSXPCConnection* connection = connect();
  [listener invalidate];
  EXPECT_EQ(ping(connection), -NSXPCConnectionInvalid);
  EXPECT_TRUE(ended(1, 0));
  EXPECT_EQ(counts->asked, 0);
}

TEST_F(AnonymousListenerTest, ARefusedClientIsInvalid) {
  decider->refuses = YES;
  NSXPCConnection* connection = connect();
  // The answer may be quicker than the no.
  ping(connection);
  EXPECT_TRUE(ended(1, 1));
  EXPECT_EQ(ping(connection), -NSXPCConnectionInvalid);
  EXPECT_EQ(counts->asked, 1);
}

TEST_F(AnonymousListenerTest, EachConnectionHasAThreadOfItsOwn) {
  NSXPCConnection* outer = connect();
  NSXPCConnection* inner = connect();
  __block std::int64_t heardInside = 0;
  const auto isOuter = std::make_shared<std::atomic<bool>>(true);
  decider->exported->before = ^{
    if (isOuter->exchange(false)) heardInside = ping(inner);
  };
  EXPECT_EQ(ping(outer), 7);
  EXPECT_EQ(heardInside, 7);
  [outer invalidate];
  [inner invalidate];
  EXPECT_TRUE(ended(2, 2));
}

TEST_F(AnonymousListenerTest, AReplyComesThoughNobodyWaitsForIt) {
  NSXPCConnection* connection = connect();
  const auto answered = std::make_shared<std::atomic<std::uint64_t>>(0);
  [[connection remoteObjectProxy] pingWithReply:^(uint64_t number) {
    *answered = number;
  }];
  EXPECT_TRUE(serveUntil([=] { return *answered == 7; }));
  [connection invalidate];
  EXPECT_TRUE(ended(1, 1));
}

}  // namespace
