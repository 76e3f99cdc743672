#include "IOPMAssertionManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Tests/unit/FakesDispatch.h"
#include "Tests/unit/FakesLog.h"
#include "Tests/unit/FakesPower.h"

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* reason = "Korvel: force-discharge";
constexpr IOPMAssertionID primary = 501;
constexpr IOPMAssertionID secondary = 502;

class IOPMAssertionManagerTest : public testing::Test {
 protected:
  IOPMAssertionManagerTest() {
    system.beforeCall = [this] {
      EXPECT_FALSE(dispatch.insideQueue()) << "a system call was made on the bookkeeping queue";
    };
  }
  /// One held pair, with what its making logged forgotten.
  void holdPair() {
    EXPECT_EQ(manager.acquire(reason), primary);
    log.lines.clear();
  }

  test::FakeLog log;
  test::FakeAssertions system;
  test::InlineDispatch dispatch;
  IOPMAssertionManager manager{system, dispatch, log};
};

TEST_F(IOPMAssertionManagerTest, MakesOneQueueAndNoAssertion) {
  EXPECT_THAT(dispatch.labels, ElementsAre("com.korvel.app.helper.iopm"));
  EXPECT_THAT(system.creations, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, AcquireMakesAPairAndReturnsTheFirst) {
  EXPECT_EQ(manager.acquire(reason), primary);
  EXPECT_THAT(manager.held(), ElementsAre(primary, secondary));
  EXPECT_THAT(system.inForce(), ElementsAre("PreventUserIdleSystemSleep", "PreventSystemSleep"));
  EXPECT_THAT(log.lines,
              ElementsAre("default IOPMAssertion: acquired IOPMAssertion id=501 "
                          "type=PreventUserIdleSystemSleep reason=Korvel: force-discharge",
                          "default IOPMAssertion: acquired secondary IOPMAssertion id=502 "
                          "type=PreventSystemSleep paired=501"));
}

TEST_F(IOPMAssertionManagerTest, BothAreMadeWithExactlyTheirProperties) {
  manager.acquire(reason);
  ASSERT_EQ(system.creations.size(), 2U);
  EXPECT_EQ(system.creations[0].properties,
            (PropertyValue::Dictionary{
                {"AssertType", "PreventUserIdleSystemSleep"},
                {"AssertLevel", 255},
                {"AssertName", reason},
                {"Details", "Korvel is force-discharging the battery to a target SoC."},
                {"TimeoutSeconds", 14400.0},
                {"TimeoutAction", "TimeoutActionRelease"}}));
  EXPECT_EQ(system.creations[1].properties,
            (PropertyValue::Dictionary{{"AssertType", "PreventSystemSleep"},
                                       {"AssertLevel", 255},
                                       {"AssertName", reason},
                                       {"TimeoutSeconds", 14400.0},
                                       {"TimeoutAction", "TimeoutActionRelease"}}));
}

TEST_F(IOPMAssertionManagerTest, AFailedFirstAssertionGivesNoneAndNoSecond) {
  system.creationCodes[1] = ioReturnNotPrivileged;
  EXPECT_EQ(manager.acquire(reason), std::nullopt);
  EXPECT_EQ(system.creations.size(), 1U);
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(log.lines, ElementsAre("fault IOPMAssertion: IOPMAssertionCreateWithProperties "
                                     "(UserIdleSystemSleep) failed: -536870207"));
}

TEST_F(IOPMAssertionManagerTest, AFailedSecondAssertionLeavesTheFirst) {
  system.creationCodes[2] = ioReturnError;
  EXPECT_EQ(manager.acquire(reason), primary);
  EXPECT_THAT(manager.held(), ElementsAre(primary));
  EXPECT_THAT(log.lines,
              ElementsAre("default IOPMAssertion: acquired IOPMAssertion id=501 "
                          "type=PreventUserIdleSystemSleep reason=Korvel: force-discharge",
                          "error IOPMAssertion: secondary PreventSystemSleep assertion failed: "
                          "-536870212 — proceeding with idle assertion only"));
}

TEST_F(IOPMAssertionManagerTest, ALoneFirstAssertionIsReleasedWithoutASecondLine) {
  system.creationCodes[2] = ioReturnError;
  holdPair();
  manager.release(primary);
  EXPECT_THAT(system.releases, ElementsAre(primary));
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, ReleaseReleasesBothOfAPair) {
  holdPair();
  manager.release(primary);
  EXPECT_THAT(system.releases, ElementsAre(primary, secondary));
  EXPECT_THAT(system.inForce(), IsEmpty());
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(log.lines,
              ElementsAre("default IOPMAssertion: released paired secondary IOPMAssertion id=502"));
}

TEST_F(IOPMAssertionManagerTest, APairIsForgottenOnceItIsReleased) {
  holdPair();
  manager.release(primary);
  manager.release(primary);
  EXPECT_THAT(system.releases, ElementsAre(primary, secondary, primary));
}

TEST_F(IOPMAssertionManagerTest, AFailedReleaseIsLoggedAndStillForgotten) {
  holdPair();
  system.releaseCodes[primary] = ioReturnError;
  manager.release(primary);
  EXPECT_THAT(system.releases, ElementsAre(primary, secondary));
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(log.lines,
              ElementsAre("error IOPMAssertion: IOPMAssertionRelease(501) failed: -536870212",
                          "default IOPMAssertion: released paired secondary IOPMAssertion id=502"));
}

TEST_F(IOPMAssertionManagerTest, AFailedSecondReleaseIsLoggedAndStillForgotten) {
  holdPair();
  system.releaseCodes[secondary] = ioReturnBadArgument;
  manager.release(primary);
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(
      log.lines,
      ElementsAre("error IOPMAssertion: IOPMAssertionRelease(secondary 502) failed: -536870206"));
}

TEST_F(IOPMAssertionManagerTest, ThePairIsForgottenBeforeTheSystemIsAsked) {
  holdPair();
  std::vector<std::vector<IOPMAssertionID>> heldAtTheCalls;
  system.beforeCall = [&] { heldAtTheCalls.push_back(manager.held()); };
  manager.release(primary);
  EXPECT_THAT(heldAtTheCalls, ElementsAre(IsEmpty(), IsEmpty()));
}

TEST_F(IOPMAssertionManagerTest, AReleaseWithinAReleaseFindsThePairForgotten) {
  holdPair();
  bool within = false;
  system.beforeCall = [&] {
    if (!std::exchange(within, true)) manager.release(primary);
  };
  manager.release(primary);
  EXPECT_THAT(system.releases, ElementsAre(primary, primary, secondary))
      << "the second of the pair is released by the one who found it";
}

TEST_F(IOPMAssertionManagerTest, AnUnknownIdentifierIsReleasedOnceAndItsFailureLogged) {
  manager.release(4000000000U);
  EXPECT_THAT(system.releases, ElementsAre(4000000000U));
  EXPECT_THAT(
      log.lines,
      ElementsAre("error IOPMAssertion: IOPMAssertionRelease(4000000000) failed: -536870206"));
}

TEST_F(IOPMAssertionManagerTest, ASecondReleasedDirectlyStaysInItsPair) {
  holdPair();
  manager.release(secondary);
  EXPECT_THAT(system.releases, ElementsAre(secondary));
  EXPECT_THAT(manager.held(), ElementsAre(primary));
  manager.release(primary);
  EXPECT_THAT(system.releases, ElementsAre(secondary, primary, secondary));
}

TEST_F(IOPMAssertionManagerTest, PairsAreIndependent) {
  manager.acquire("first");
  manager.acquire("second");
  EXPECT_THAT(manager.held(), ElementsAre(501, 502, 503, 504));
  manager.release(501);
  EXPECT_THAT(manager.held(), ElementsAre(503, 504));
  EXPECT_THAT(system.inForce(), ElementsAre("PreventUserIdleSystemSleep", "PreventSystemSleep"));
}

TEST_F(IOPMAssertionManagerTest, ReleaseAllReleasesInOrderAndSilently) {
  holdPair();
  manager.acquire("another");
  log.lines.clear();
  system.releaseCodes[secondary] = ioReturnError;
  manager.releaseAll();
  EXPECT_THAT(system.releases, ElementsAre(501, 502, 503, 504));
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, ReleaseAllLeavesNothingInForceThatIsOutstanding) {
  manager.acquire("first");
  system.creationCodes[4] = ioReturnError;
  manager.acquire("second, and without its pair");
  manager.acquire("third");
  manager.release(501);
  ASSERT_THAT(manager.held(), ElementsAre(503, 504, 505));
  manager.releaseAll();
  EXPECT_THAT(system.releases, ElementsAre(501, 502, 503, 504, 505));
  EXPECT_THAT(system.inForce(), IsEmpty());
  EXPECT_THAT(manager.held(), IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, ReleaseAllForgetsThePairsToo) {
  holdPair();
  manager.releaseAll();
  manager.release(primary);
  EXPECT_THAT(system.releases, ElementsAre(primary, secondary, primary));
}

TEST_F(IOPMAssertionManagerTest, ReleaseAllOfNothingMakesNoCall) {
  manager.releaseAll();
  EXPECT_THAT(system.releases, IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, AnAssertionAcquiredWhileAllAreReleasedIsForgotten) {
  holdPair();
  bool acquiring = false;
  system.beforeCall = [&] {
    if (!acquiring && !system.releases.empty()) {
      acquiring = true;
      manager.acquire("late");
    }
  };
  manager.releaseAll();
  EXPECT_THAT(system.releases, ElementsAre(primary, secondary));
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(system.inForce(), ElementsAre("PreventUserIdleSystemSleep", "PreventSystemSleep"));
}

TEST_F(IOPMAssertionManagerTest, APairThatNobodyReleasesTimesOutAfterFourHours) {
  holdPair();
  system.pass(14399);
  EXPECT_EQ(system.inForce().size(), 2U);
  system.pass(1);
  EXPECT_THAT(system.inForce(), IsEmpty());
}

TEST(IOPMAssertionManagerLifeTest, DestroyingTheManagerReleasesNothing) {
  test::FakeLog log;
  test::FakeAssertions system;
  test::InlineDispatch dispatch;
  {
    IOPMAssertionManager manager(system, dispatch, log);
    manager.acquire(reason);
  }
  EXPECT_THAT(system.releases, IsEmpty());
  EXPECT_EQ(system.inForce().size(), 2U);
}

}  // namespace
}  // namespace korvel
