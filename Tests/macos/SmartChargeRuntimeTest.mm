#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include "macOS/Adapters.h"

/// Stands for the framework's class; the runtime finds it by name too.
@interface KorvelTestCharge : NSObject
@property(class, nonatomic) NSInteger living;
@property(class, nonatomic) BOOL givesNothing;
@end

static NSInteger livingObjects = 0;
static BOOL initGivesNothing = NO;

@implementation KorvelTestCharge {
  NSString* client;
  uint8_t limit;
}

+ (NSInteger)living {
  return livingObjects;
}
+ (void)setLiving:(NSInteger)living {
  livingObjects = living;
}
+ (BOOL)givesNothing {
  return initGivesNothing;
}
+ (void)setGivesNothing:(BOOL)givesNothing {
  initGivesNothing = givesNothing;
}

- (instancetype)initWithClientName:(NSString*)name {
  self = [super init];
  if (self == nil) return nil;
  ++livingObjects;
  client = name;
  return initGivesNothing ? nil : self;
}

- (void)dealloc {
  --livingObjects;
}

- (BOOL)isMCLSupported {
  return [client isEqual:@"Korvel"];
}

- (int32_t)getMCLLimitWithError:(NSError**)error {
  if (limit == 99) [NSException raise:NSGenericException format:@"raised"];
  if (limit == 98 && error != nullptr) {
    *error = [NSError errorWithDomain:@"test"
                                 code:1
                             userInfo:@{NSLocalizedDescriptionKey : @"cannot tell"}];
  }
  return limit == 0 ? -2 : limit;
}

- (NSArray*)availableChargeLimitsWithError:(NSError**)error {
  if (error != nullptr) *error = nil;
  return limit == 97 ? nil : @[ @80, @90, @100 ];
}

- (BOOL)setMCLLimit:(uint8_t)wanted error:(NSError**)error {
  if (error != nullptr) *error = nil;
  limit = wanted;
  return wanted != 0;
}

@end

namespace korvel::macos {
namespace {

class SmartChargeRuntimeTest : public testing::Test {
 protected:
  void SetUp() override {
    KorvelTestCharge.living = 0;
    KorvelTestCharge.givesNothing = NO;
  }
  HandleRef make() {
    const HandleRef cls = runtime->classFromString("KorvelTestCharge");
    const HandleRef object = runtime->callAlloc(runtime->getClassMethod(cls, "alloc"), cls);
    return runtime->callInit(runtime->getInstanceMethod(cls, "initWithClientName:"), object,
                             "Korvel");
  }
  /// Sets the limit and returns the limit that the object then reports.
  std::int32_t limitAfterSetting(HandleRef object, std::uint8_t value) {
    ErrorSlot unheard;
    runtime->callSetUInt8(object, "setMCLLimit:error:", value, unheard);
    return runtime->callInt32(object, "getMCLLimitWithError:", error);
  }

  std::unique_ptr<SmartChargeRuntime> runtime = makeSmartChargeRuntime();
  ErrorSlot error;
};

TEST_F(SmartChargeRuntimeTest, AMadeObjectLivesUntilItIsReleasedOnce) {
  const HandleRef object = make();
  ASSERT_NE(object, 0U);
  EXPECT_EQ(KorvelTestCharge.living, 1);
  EXPECT_TRUE(runtime->callBoolean(object, "isMCLSupported"));
  runtime->release(object);
  EXPECT_EQ(KorvelTestCharge.living, 0);
}

TEST_F(SmartChargeRuntimeTest, AnInitThatGivesNothingLeavesNothing) {
  KorvelTestCharge.givesNothing = YES;
  EXPECT_EQ(make(), 0U);
  EXPECT_EQ(KorvelTestCharge.living, 0);
}

TEST_F(SmartChargeRuntimeTest, NamesThatAreNotThereAreZero) {
  EXPECT_EQ(runtime->dlopen("/no/such/framework", dlopenNow), 0U);
  EXPECT_EQ(runtime->classFromString("KorvelNoSuchClass"), 0U);
  const HandleRef cls = runtime->classFromString("KorvelTestCharge");
  EXPECT_TRUE(runtime->isClass(cls));
  EXPECT_EQ(runtime->getClassMethod(cls, "noSuchMethod"), 0U);
  EXPECT_EQ(runtime->getInstanceMethod(cls, "noSuchMethod"), 0U);
  const HandleRef object = make();
  EXPECT_FALSE(runtime->isClass(object));
  EXPECT_FALSE(runtime->respondsToSelector(object, "noSuchMethod"));
  EXPECT_TRUE(runtime->respondsToSelector(object, "setMCLLimit:error:"));
  runtime->release(object);
  EXPECT_EQ(KorvelTestCharge.living, 0) << "a question keeps no reference";
}

TEST_F(SmartChargeRuntimeTest, ArgumentsAndResultsKeepTheirWidth) {
  const HandleRef object = make();
  EXPECT_EQ(limitAfterSetting(object, 255), 255);
  EXPECT_EQ(limitAfterSetting(object, 0), -2);
  EXPECT_EQ(error, std::nullopt);
  EXPECT_TRUE(runtime->callSetUInt8(object, "setMCLLimit:error:", 85, error));
  EXPECT_FALSE(runtime->callSetUInt8(object, "setMCLLimit:error:", 0, error));
  runtime->release(object);
}

TEST_F(SmartChargeRuntimeTest, AnArrayOfNumbersComesAsOne) {
  const HandleRef object = make();
  const PropertyValue limits =
      runtime->callObject(object, "availableChargeLimitsWithError:", error);
  EXPECT_EQ(limits, PropertyValue(PropertyValue::Array{80, 90, 100}));
  limitAfterSetting(object, 97);
  EXPECT_TRUE(runtime->callObject(object, "availableChargeLimitsWithError:", error).isAbsent());
  runtime->release(object);
}

TEST_F(SmartChargeRuntimeTest, TheErrorSlotSaysItsDescriptionAndIsEmptiedBeforeEachCall) {
  const HandleRef object = make();
  limitAfterSetting(object, 98);
  EXPECT_EQ(error, "cannot tell");
  limitAfterSetting(object, 85);
  EXPECT_EQ(error, std::nullopt);
  runtime->release(object);
}

TEST_F(SmartChargeRuntimeTest, AnExceptionFillsTheErrorSlot) {
  const HandleRef object = make();
  EXPECT_EQ(limitAfterSetting(object, 99), 0);
  EXPECT_EQ(error, "raised");
  runtime->release(object);
  EXPECT_EQ(KorvelTestCharge.living, 0);
}

}  // namespace
}  // namespace korvel::macos
