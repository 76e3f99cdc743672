#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "Tests/tin/ObjectsProbe.h"
#include "TinMac/System/Books.h"

namespace tinmac {
namespace {

/// The images are built against Apple's SDK. Who has none leaves out the label of these tests.
class ObjectsTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(objects::whyNotLoaded(), ""); }
};

/// The same, for what ends the process. The name lets the runner play them first.
using ObjectsDeathTest = ObjectsTest;

TEST_F(ObjectsTest, TextsAreMeasuredInUtf16AndKeptWhole) {
  EXPECT_EQ(objects::probe("probeTextLengths"), "");
}
TEST_F(ObjectsTest, LoneSurrogatesStopAConversionOrAreReplaced) {
  EXPECT_EQ(objects::probe("probeLoneSurrogates"), "");
}
TEST_F(ObjectsTest, BytesThatAreNoUtf8MakeNoText) {
  EXPECT_EQ(objects::probe("probeTextEncodings"), "");
}
TEST_F(ObjectsTest, ConstantTextsAreTextsThatNobodyOwns) {
  EXPECT_EQ(objects::probe("probeConstantTexts"), "");
}
TEST_F(ObjectsTest, NumbersKeepTheirKindAndTellWhenTheyAreCut) {
  EXPECT_EQ(objects::probe("probeNumbers"), "");
}
TEST_F(ObjectsTest, EachKindOfValueHasItsType) { EXPECT_EQ(objects::probe("probeTypes"), ""); }
TEST_F(ObjectsTest, DictionariesFindEqualKeys) {
  EXPECT_EQ(objects::probe("probeDictionaries"), "");
}
TEST_F(ObjectsTest, ContainersCompareAndEnumerateWhatTheyHold) {
  EXPECT_EQ(objects::probe("probeContainers"), "");
}
TEST_F(ObjectsTest, ErrorsDescribeThemselves) { EXPECT_EQ(objects::probe("probeErrors"), ""); }
TEST_F(ObjectsTest, ToldValuesBecomeObjects) { EXPECT_EQ(objects::probe("probeBundle"), ""); }

TEST_F(ObjectsTest, MessagesKeepEveryArgument) { EXPECT_EQ(objects::probe("probeMessages"), ""); }
TEST_F(ObjectsTest, MessagesToNilAnswerZeros) {
  EXPECT_EQ(objects::probe("probeMessagesToNil"), "");
}
TEST_F(ObjectsTest, ClassesMethodsAndProtocolsAreFoundByName) {
  EXPECT_EQ(objects::probe("probeReflection"), "");
}
TEST_F(ObjectsTest, ExceptionsUnwindAndReachTheirOwnHandlers) {
  EXPECT_EQ(objects::probe("probeExceptions"), "");
}

TEST_F(ObjectsTest, MembersAreMadeAndDestroyedInOrder) {
  EXPECT_EQ(objects::probe("probeMembers"), "");
}
TEST_F(ObjectsTest, AResultIsHandedOverPastThePool) {
  const std::int64_t noted = notedRules("an object was autoreleased without a pool");
  EXPECT_EQ(objects::probe("probeHandOver"), "");
  EXPECT_EQ(notedRules("an object was autoreleased without a pool"), noted);
}
TEST_F(ObjectsTest, PoolsReleaseWhatTheyHold) { EXPECT_EQ(objects::probe("probePools"), ""); }
TEST_F(ObjectsTest, BlocksOwnWhatTheyCapture) { EXPECT_EQ(objects::probe("probeBlocks"), ""); }
TEST_F(ObjectsTest, BlocksWithoutCapturesAreObjectsToo) {
  EXPECT_EQ(objects::probe("probeGlobalBlock"), "");
}

TEST_F(ObjectsTest, TextsOfTheCxxLibraryGrowAndRefuse) {
  EXPECT_EQ(objects::probe("probeCxxStrings"), "");
}
TEST_F(ObjectsTest, NumbersArePrintedWithTheFewestDigits) {
  EXPECT_EQ(objects::probe("probeCxxNumbers"), "");
}
TEST_F(ObjectsTest, SharedPointersCountTheirOwners) {
  EXPECT_EQ(objects::probe("probeCxxShared"), "");
}
TEST_F(ObjectsTest, ErrorNumbersHaveTheMacsTexts) {
  EXPECT_EQ(objects::probe("probeCxxErrors"), "");
}

TEST_F(ObjectsTest, ProbesLeaveNothingInTheBooks) {
  const char* const classes[] = {"NSString", "NSMutableArray", "NSArray",     "NSDictionary",
                                 "NSNumber", "NSError",        "NSException", "NSMallocBlock",
                                 "NSData",   "ProbeChild",     "ProbeDerived"};
  std::vector<std::int64_t> before;
  for (const char* name : classes) {
    before.push_back(liveObjects(name));
  }
  for (const char* name : {"probeContainers", "probeErrors", "probeBlocks", "probeMembers",
                           "probeMessages", "probeHandOver", "probeBundle", "probeExceptions"}) {
    EXPECT_EQ(objects::probe(name), "");
  }
  for (std::size_t index = 0; index < std::size(classes); ++index) {
    EXPECT_EQ(liveObjects(classes[index]), before[index]) << classes[index];
  }
}

TEST_F(ObjectsTest, AnObjectWithoutAPoolLeaksAndIsNoted) {
  const std::int64_t noted = notedRules("an object was autoreleased without a pool");
  const std::int64_t living = liveObjects("NSString");
  objects::call("leakWithoutPool");
  EXPECT_EQ(notedRules("an object was autoreleased without a pool"), noted + 1);
  EXPECT_EQ(liveObjects("NSString"), living + 1);
}

TEST_F(ObjectsDeathTest, NothingIsNeitherRetainedNorReleased) {
  EXPECT_DEATH(objects::call("breakReleaseNull"), "null pointer was passed: CFRelease");
  EXPECT_DEATH(objects::call("breakRetainNull"), "null pointer was passed: CFRetain");
}
TEST_F(ObjectsDeathTest, AFreedObjectIsNotUsed) {
  EXPECT_DEATH(objects::call("breakOverRelease"), "released after it was freed: NSString");
  EXPECT_DEATH(objects::call("breakUseAfterFree"), "object that was freed: NSString hash");
}
TEST_F(ObjectsDeathTest, AFunctionTakesItsOwnTypeOnly) {
  EXPECT_DEATH(objects::call("breakWrongType"), "wrong type.*CFDataGetLength was given a");
  EXPECT_DEATH(objects::call("breakBooleanAsNumber"), "Boolean.*CFNumberGetValue");
  EXPECT_DEATH(objects::call("breakImmutable"), "CFDictionarySetValue was given a NSDictionary");
  EXPECT_DEATH(objects::call("breakArrayIndex"), "CFArrayGetValueAtIndex: 0 of 0");
}
TEST_F(ObjectsDeathTest, AMessageThatNobodyUnderstandsIsNamed) {
  EXPECT_DEATH(objects::call("breakUnknownSelector"), "-.TinConstantString objectAtIndex:.");
  EXPECT_DEATH(objects::call("breakUnknownClassSelector"), ".NSData dataWithContentsOfFile:.");
}

/// In a process of its own, since no pool is opened after the books are settled.
TEST_F(ObjectsDeathTest, SettlingEmptiesTheMainThreadsPools) {
  const auto settled = [] {
    const std::int64_t living = liveObjects("NSString");
    objects::call("leaveInPool");
    const bool isHeld = liveObjects("NSString") == living + 1;
    objects::settle();
    std::_Exit(isHeld && liveObjects("NSString") == living ? 0 : 1);
  };
  EXPECT_EXIT(settled(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tinmac
