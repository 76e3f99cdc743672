#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Tests/macos/NotingCore.h"
#import "macOS/ExportedObject.h"
#import "macOS/FoundationConversion.h"

/// Exports one object to every connection of an anonymous listener.
@interface KorvelTestServer : NSObject <NSXPCListenerDelegate>
@property(nonatomic) id exported;
@end

@implementation KorvelTestServer
- (BOOL)listener:(NSXPCListener*)listener
    shouldAcceptNewConnection:(NSXPCConnection*)newConnection {
  @autoreleasepool {
    newConnection.exportedInterface =
        korvel::macos::makeNSXPCInterface(korvel::makeHelperInterface());
    newConnection.exportedObject = self.exported;
    [newConnection resume];
    return YES;
  }
}
@end

namespace {

/// Connects a real client and a real server in one process, without launchd.
class ExportedObjectTest : public testing::Test {
 public:
  ~ExportedObjectTest() override {
    [connection invalidate];
    [listener invalidate];
  }

 protected:
  ExportedObjectTest() {
    server.exported = [[KorvelExportedObject alloc] initWithCore:core];
    listener.delegate = server;
    [listener resume];
    connection = [[NSXPCConnection alloc] initWithListenerEndpoint:listener.endpoint];
    connection.remoteObjectInterface =
        [NSXPCInterface interfaceWithProtocol:@protocol(KorvelHelperProtocol)];
    [connection resume];
  }

  /// Returns a proxy whose calls return only after their reply.
  id<KorvelHelperProtocol> helper() {
    return [connection synchronousRemoteObjectProxyWithErrorHandler:^(NSError* error) {
      ADD_FAILURE() << error.description.UTF8String;
    }];
  }

  std::shared_ptr<korvel::test::NotingCore> core = std::make_shared<korvel::test::NotingCore>();
  KorvelTestServer* server = [KorvelTestServer new];
  NSXPCListener* listener = [NSXPCListener anonymousListener];
  NSXPCConnection* connection;
};

TEST_F(ExportedObjectTest, EveryOperationReachesTheCoreAndIsAnswered) {
  __block int answers = 0;
  void (^answer)(BOOL, NSError*) = ^(BOOL success, NSError* error) {
    EXPECT_TRUE(success);
    EXPECT_TRUE(error == nil);
    ++answers;
  };
  [helper() setChargeLimit:80 reply:answer];
  [helper() setChargeLimit:255 reply:answer];
  [helper() clearChargeLimitWithReply:answer];
  [helper() forceDischarge:YES reply:answer];
  [helper() forceDischarge:NO reply:answer];
  [helper() setClamshellKeepAwake:YES reply:answer];
  [helper() releaseLimitUntilFullThenRestoreWithReply:answer];
  [helper() cancelTopUpWithReply:answer];
  [helper() resetAllSMCKeysWithReply:answer];
  EXPECT_EQ(answers, 9);
  EXPECT_EQ(core->calls, (std::vector<std::string>{"limit 80", "limit 255", "clear", "discharge on",
                                                   "discharge off", "keep-awake on", "top-off",
                                                   "cancel", "reset"}));
}

TEST_F(ExportedObjectTest, DataAndNumbersKeepTheirBytes) {
  __block NSData* capabilities = nil;
  __block NSData* state = nil;
  __block uint64_t pid = 0;
  [helper() capabilitiesWithReply:^(NSData* json) {
    capabilities = json;
  }];
  [helper() getStateWithReply:^(NSData* json) {
    state = json;
  }];
  [helper() pingWithReply:^(uint64_t processIdentifier) {
    pid = processIdentifier;
  }];
  EXPECT_TRUE([capabilities isEqual:[NSData dataWithBytes:"{\0}" length:3]]);
  EXPECT_TRUE([state isEqual:[NSData dataWithBytes:"{}" length:2]]);
  EXPECT_EQ(pid, 1ULL << 40U);
}

TEST_F(ExportedObjectTest, AnErrorArrivesWithCodeTextAndDetails) {
  core->failure = korvel::makeError(500, "kSMCWriteKey failed — 132", {{"smcResult", 132}});
  __block NSError* arrived = nil;
  [helper() setChargeLimit:80
                     reply:^(BOOL success, NSError* error) {
                       EXPECT_FALSE(success);
                       arrived = error;
                     }];
  ASSERT_TRUE(arrived != nil);
  EXPECT_TRUE([arrived.domain isEqual:@KORVEL_HELPER_ERROR_DOMAIN]);
  EXPECT_EQ(arrived.code, KorvelHelperErrorCodeSMCWriteFailed);
  EXPECT_TRUE([arrived.localizedDescription isEqual:@"kSMCWriteKey failed — 132"]);
  EXPECT_TRUE([arrived.userInfo[@"smcResult"] isEqual:@132]);
}

TEST_F(ExportedObjectTest, QuitIsOneWay) {
  [helper() quit];
  [helper() pingWithReply:^(uint64_t processIdentifier) {
    EXPECT_NE(processIdentifier, 0U);
  }];
  EXPECT_EQ(core->calls, std::vector<std::string>{"quit"});
}

TEST_F(ExportedObjectTest, ARequirementThatDoesNotParseRaises) {
  NSXPCConnection* other = [[NSXPCConnection alloc] initWithListenerEndpoint:listener.endpoint];
  BOOL raised = NO;
  @try {
    [other setCodeSigningRequirement:@"this is no requirement"];
  } @catch (NSException* unparseable) {
    raised = YES;
  }
  EXPECT_TRUE(raised) << "the adapter counts on it: it turns the exception into a refusal";
  [other resume];
  [other invalidate];
}

}  // namespace
