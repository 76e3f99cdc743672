// Messages to the exported object without a connection around it: what no well-behaved client
// sends, and replies at moments that a connection cannot be made to choose.
#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Tests/macos/NotingCore.h"
#import "macOS/ExportedObject.h"

namespace {

using ErrorReply = void (^)(BOOL, NSError*);

const std::vector<std::string> everyCall{"limit 80", "clear",  "discharge on", "keep-awake off",
                                         "top-off",  "cancel", "reset"};

class ExportedObjectAloneTest : public testing::Test {
 protected:
  ExportedObjectAloneTest() { object = [[KorvelExportedObject alloc] initWithCore:core]; }

  /// Sends every message that is answered with success or an error.
  void sendAll(ErrorReply reply) {
    [object setChargeLimit:80 reply:reply];
    [object clearChargeLimitWithReply:reply];
    [object forceDischarge:YES reply:reply];
    [object setClamshellKeepAwake:NO reply:reply];
    [object releaseLimitUntilFullThenRestoreWithReply:reply];
    [object cancelTopUpWithReply:reply];
    [object resetAllSMCKeysWithReply:reply];
  }

  std::shared_ptr<korvel::test::NotingCore> core = std::make_shared<korvel::test::NotingCore>();
  KorvelExportedObject* object = nil;
};

TEST_F(ExportedObjectAloneTest, EveryMessageReachesTheCoreAndIsAnsweredOnce) {
  __block int answers = 0;
  sendAll(^(BOOL success, NSError* error) {
    EXPECT_TRUE(success);
    EXPECT_TRUE(error == nil);
    ++answers;
  });
  EXPECT_EQ(core->calls, everyCall);
  EXPECT_EQ(answers, 7);
}

TEST_F(ExportedObjectAloneTest, AMessageWithoutAReplyBlockIsWorkLikeAnyOther) {
  ErrorReply none = nil;
  sendAll(none);
  EXPECT_EQ(core->calls, everyCall);
}

TEST_F(ExportedObjectAloneTest, AnErrorForWhichThereIsNoReplyBlockGoesNowhere) {
  core->failure = korvel::makeError(500, "kSMCWriteKey failed", {{"smcResult", 132}});
  ErrorReply none = nil;
  sendAll(none);
  EXPECT_EQ(core->calls, everyCall);
}

TEST_F(ExportedObjectAloneTest, DataAndNumbersWithoutAReplyBlockGoNowhere) {
  void (^noData)(NSData*) = nil;
  void (^noNumber)(uint64_t) = nil;
  [object capabilitiesWithReply:noData];
  [object getStateWithReply:noData];
  [object pingWithReply:noNumber];
  [object quit];
  EXPECT_EQ(core->calls, std::vector<std::string>{"quit"});
}

TEST_F(ExportedObjectAloneTest, DataKeepsItsBytes) {
  __block NSData* capabilities = nil;
  __block NSData* state = nil;
  [object capabilitiesWithReply:^(NSData* json) {
    capabilities = json;
  }];
  [object getStateWithReply:^(NSData* json) {
    state = json;
  }];
  EXPECT_TRUE([capabilities isEqual:[NSData dataWithBytes:"{\0}" length:3]]);
  EXPECT_TRUE([state isEqual:[NSData dataWithBytes:"{}" length:2]]);
}

TEST_F(ExportedObjectAloneTest, AnErrorHasItsCodeTextAndDetailsOfEveryType) {
  core->failure = korvel::makeError(
      501, "IOPMAssertionCreateWithProperties failed — \xE9",
      {{"ioReturn", -536870201}, {"keys", korvel::PropertyValue::Array{"CH0B", 2, 0.5, true}}});
  __block NSError* arrived = nil;
  sendAll(^(BOOL success, NSError* error) {
    EXPECT_FALSE(success);
    arrived = error;
  });
  ASSERT_TRUE(arrived != nil);
  EXPECT_TRUE([arrived.domain isEqual:@KORVEL_HELPER_ERROR_DOMAIN]);
  EXPECT_EQ(arrived.code, KorvelHelperErrorCodePMAssertionFailed);
  EXPECT_TRUE([arrived.userInfo[@"ioReturn"] isEqual:@(-536870201)]);
  EXPECT_TRUE([arrived.userInfo[@"keys"] isEqual:(@[ @"CH0B", @2, @0.5, @YES ])]);
  EXPECT_NE(arrived.localizedDescription.length, 0U) << "bytes that are no UTF-8 lose no text";
}

TEST_F(ExportedObjectAloneTest, AReplyComesAlsoWhenTheObjectHasGone) {
  core->keepsReplies = true;
  __block int answers = 0;
  [object clearChargeLimitWithReply:^(BOOL success, NSError* error) {
    EXPECT_FALSE(success);
    EXPECT_TRUE(error == nil);
    ++answers;
  }];
  object = nil;
  ASSERT_EQ(core->kept.size(), 1U);
  EXPECT_EQ(answers, 0);
  core->kept.front()(false, std::nullopt);
  EXPECT_EQ(answers, 1);
}

TEST_F(ExportedObjectAloneTest, AReplyBlockIsLetGoOnceItWasCalled) {
  core->keepsReplies = true;
  __weak NSObject* held = nil;
  @autoreleasepool {
    NSObject* inBlock = [NSObject new];
    held = inBlock;
    [object cancelTopUpWithReply:^(BOOL, NSError*) {
      EXPECT_TRUE(inBlock != nil);
    }];
    inBlock = nil;
    EXPECT_TRUE(held != nil) << "a reply that is owed keeps its block";
    core->kept.front()(true, std::nullopt);
  }
  EXPECT_TRUE(held == nil) << "the reply still stands in the core, and its block is gone";
}

TEST_F(ExportedObjectAloneTest, AReplyBlockMaySendTheNextMessage) {
  __block int answers = 0;
  KorvelExportedObject* again = object;
  [object clearChargeLimitWithReply:^(BOOL, NSError*) {
    ++answers;
    [again setChargeLimit:60
                    reply:^(BOOL success, NSError*) {
                      EXPECT_TRUE(success);
                      ++answers;
                    }];
  }];
  EXPECT_EQ(answers, 2);
  EXPECT_EQ(core->calls, (std::vector<std::string>{"clear", "limit 60"}));
}

TEST_F(ExportedObjectAloneTest, AnExceptionInAReplyBlockReachesTheSenderAndSpoilsNothing) {
  BOOL raised = NO;
  @try {
    [object clearChargeLimitWithReply:^(BOOL, NSError*) {
      [NSException raise:NSGenericException format:@"raised"];
    }];
  } @catch (NSException* exception) {
    raised = [exception.reason isEqual:@"raised"];
  }
  EXPECT_TRUE(raised);
  sendAll(nil);
  EXPECT_EQ(core->calls.size(), everyCall.size() + 1);
}

TEST_F(ExportedObjectAloneTest, TheObjectKeepsTheCoreAndLetsItGo) {
  const std::weak_ptr<korvel::test::NotingCore> watched = core;
  core = nullptr;
  EXPECT_FALSE(watched.expired());
  object = nil;
  EXPECT_TRUE(watched.expired());
}

}  // namespace
