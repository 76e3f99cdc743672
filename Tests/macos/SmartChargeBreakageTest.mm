// A framework that does everything wrong: it raises in any call, lacks methods, or answers with
// other types than its prototypes say.
#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "macOS/Adapters.h"

/// KorvelBrokenCharge raises in this call, and answers with these.
static NSString* raisedIn = nil;
static NSString* raisedReason = nil;
static id offered = nil;
static NSError* offeredError = nil;

static void raiseIn(NSString* call) {
  if ([raisedIn isEqual:call]) {
    @throw [[NSException alloc] initWithName:NSGenericException reason:raisedReason userInfo:nil];
  }
}

/// An error that does not even describe itself.
@interface KorvelWordlessError : NSError
@end
@implementation KorvelWordlessError
- (NSString*)localizedDescription {
  NSString* none = nil;
  return none;
}
@end

@interface KorvelBrokenCharge : NSObject
@end
@implementation KorvelBrokenCharge
+ (instancetype)alloc {
  raiseIn(@"alloc");
  return [super alloc];
}
- (instancetype)initWithClientName:(NSString*)__unused name {
  raiseIn(@"init");
  return [super init];
}
- (BOOL)respondsToSelector:(SEL)selector {
  raiseIn(@"responds");
  return [super respondsToSelector:selector];
}
- (BOOL)isMCLSupported {
  raiseIn(@"supported");
  return YES;
}
- (int32_t)getMCLLimitWithError:(NSError**)error {
  raiseIn(@"get");
  if (error != nullptr) *error = offeredError;
  return -7;
}
- (id)availableChargeLimitsWithError:(NSError**)error {
  raiseIn(@"offers");
  if (error != nullptr) *error = offeredError;
  return offered;
}
- (BOOL)setMCLLimit:(uint8_t)__unused wanted error:(NSError**)error {
  raiseIn(@"set");
  if (error != nullptr) *error = offeredError;
  return YES;
}
@end

/// An older framework, of which half is not there.
@interface KorvelHalfCharge : NSObject
@end
@implementation KorvelHalfCharge
- (BOOL)isMCLSupported {
  return YES;
}
@end

namespace korvel::macos {
namespace {

class SmartChargeBreakageTest : public testing::Test {
 public:
  ~SmartChargeBreakageTest() override {
    raisedIn = nil;
    if (object != 0) runtime->release(object);
    offered = nil;
    offeredError = nil;
  }

 protected:
  HandleRef make() {
    const HandleRef cls = runtime->classFromString("KorvelBrokenCharge");
    const HandleRef fresh = runtime->callAlloc(runtime->getClassMethod(cls, "alloc"), cls);
    if (fresh == 0) return 0;
    return runtime->callInit(runtime->getInstanceMethod(cls, "initWithClientName:"), fresh,
                             "Korvel");
  }
  void raise(NSString* call, NSString* reason) {
    raisedIn = call;
    raisedReason = reason;
  }
  PropertyValue offers(id answer) {
    offered = answer;
    return runtime->callObject(object, "availableChargeLimitsWithError:", error);
  }

  std::unique_ptr<SmartChargeRuntime> runtime = makeSmartChargeRuntime();
  HandleRef object = make();
  ErrorSlot error;
};

TEST_F(SmartChargeBreakageTest, AnExceptionInAllocGivesNoObject) {
  raise(@"alloc", @"no memory");
  EXPECT_EQ(make(), 0U);
}

TEST_F(SmartChargeBreakageTest, AnExceptionInAQuestionIsANo) {
  raise(@"responds", @"who asks");
  EXPECT_FALSE(runtime->respondsToSelector(object, "isMCLSupported"));
  raise(@"supported", @"ask later");
  EXPECT_FALSE(runtime->callBoolean(object, "isMCLSupported"));
  raise(@"nowhere", nil);
  EXPECT_TRUE(runtime->callBoolean(object, "isMCLSupported")) << "nothing stays broken";
}

TEST_F(SmartChargeBreakageTest, AnExceptionInACallIsItsErrorAndItsResultIsZero) {
  raise(@"get", @"get raised");
  EXPECT_EQ(runtime->callInt32(object, "getMCLLimitWithError:", error), 0);
  EXPECT_EQ(error, "get raised");
  raise(@"offers", @"offers raised");
  EXPECT_TRUE(offers(@[ @80 ]).isAbsent());
  EXPECT_EQ(error, "offers raised");
  raise(@"set", @"set raised");
  EXPECT_FALSE(runtime->callSetUInt8(object, "setMCLLimit:error:", 80, error));
  EXPECT_EQ(error, "set raised");
}

TEST_F(SmartChargeBreakageTest, AnExceptionWithoutAReasonIsAnErrorWithoutWords) {
  raise(@"set", nil);
  EXPECT_FALSE(runtime->callSetUInt8(object, "setMCLLimit:error:", 80, error));
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(*error, "");
}

TEST_F(SmartChargeBreakageTest, AnErrorWithoutADescriptionIsStillAnError) {
  offeredError = [KorvelWordlessError errorWithDomain:@"test" code:1 userInfo:nil];
  EXPECT_TRUE(runtime->callSetUInt8(object, "setMCLLimit:error:", 80, error));
  EXPECT_EQ(error, "");
}

TEST_F(SmartChargeBreakageTest, AResultIsTakenAsItIsBesideAnError) {
  offeredError = [NSError errorWithDomain:@"test"
                                     code:1
                                 userInfo:@{NSLocalizedDescriptionKey : @"both"}];
  EXPECT_EQ(runtime->callInt32(object, "getMCLLimitWithError:", error), -7);
  EXPECT_EQ(error, "both");
  error.reset();
  EXPECT_TRUE(runtime->callSetUInt8(object, "setMCLLimit:error:", 80, error));
  EXPECT_EQ(error, "both");
  EXPECT_EQ(offers(@[ @80 ]), PropertyValue(PropertyValue::Array{80}));
  EXPECT_EQ(error, "both");
}

TEST_F(SmartChargeBreakageTest, AnAnswerOfAnotherTypeIsThatTypesValue) {
  EXPECT_EQ(offers(@"80"), PropertyValue("80"));
  EXPECT_EQ(offers(@80), PropertyValue(80));
  EXPECT_EQ(offers(@YES), PropertyValue(true));
  EXPECT_EQ(offers(@{@"limit" : @80}), PropertyValue(PropertyValue::Dictionary{{"limit", 80}}));
  EXPECT_EQ(offers(@[ @[ @80 ], @"90", @0.5 ]),
            PropertyValue(PropertyValue::Array{PropertyValue::Array{80}, "90", 0.5}));
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(SmartChargeBreakageTest, AnAnswerThatIsNoPropertyListIsAbsent) {
  EXPECT_TRUE(offers(nil).isAbsent());
  EXPECT_TRUE(offers([NSNull null]).isAbsent());
  EXPECT_TRUE(offers([NSSet setWithObject:@80]).isAbsent());
  EXPECT_TRUE(offers(@{@80 : @"a key that is no text"}).isAbsent());
  const PropertyValue mixed = offers(@[ [NSNull null], @80 ]);
  ASSERT_NE(mixed.array(), nullptr);
  EXPECT_TRUE(mixed.array()->front().isAbsent());
}

TEST_F(SmartChargeBreakageTest, WhatAHalfFrameworkLacksIsSaidOfEachMethod) {
  const HandleRef cls = runtime->classFromString("KorvelHalfCharge");
  ASSERT_NE(cls, 0U);
  EXPECT_EQ(runtime->getInstanceMethod(cls, "initWithClientName:"), 0U);
  EXPECT_NE(runtime->getInstanceMethod(cls, "isMCLSupported"), 0U);
  EXPECT_EQ(runtime->getClassMethod(cls, "isMCLSupported"), 0U) << "it is a method of objects";
  const HandleRef half = runtime->callAlloc(runtime->getClassMethod(cls, "alloc"), cls);
  ASSERT_NE(half, 0U);
  EXPECT_TRUE(runtime->respondsToSelector(half, "isMCLSupported"));
  for (const char* missing :
       {"getMCLLimitWithError:", "availableChargeLimitsWithError:", "setMCLLimit:error:"}) {
    EXPECT_FALSE(runtime->respondsToSelector(half, missing)) << missing;
    EXPECT_EQ(runtime->getInstanceMethod(cls, missing), 0U) << missing;
  }
  runtime->release(half);
}

}  // namespace
}  // namespace korvel::macos
