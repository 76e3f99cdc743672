#include "IOPMAssertionManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Tests/unit/FakesDispatch.h"
#include "Tests/unit/FakesLog.h"
#include "Tests/unit/RecordedMac.h"

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using virtualmac::SeamCall;

constexpr const char* reason = "Korvel: force-discharge";
constexpr IOPMAssertionID primary = 33001;
constexpr IOPMAssertionID secondary = 33002;

/// Keeps what assertions are to be made with; the machine forgets what it has no use for.
class KeptProperties final : public PowerAssertions {
 public:
  std::vector<PropertyValue> all;

  KernReturn createWithProperties(const PropertyValue& properties, std::uint32_t& id) override {
    EXPECT_EQ(id, 0U) << "the identifier must start at 0";
    all.push_back(properties);
    id = static_cast<std::uint32_t>(all.size());
    return kernSuccess;
  }
  KernReturn release(std::uint32_t /*id*/) override { return kernSuccess; }
};

class IOPMAssertionManagerTest : public testing::Test {
 protected:
  IOPMAssertionManagerTest() {
    mac.faults.observe([this](SeamCall) {
      EXPECT_FALSE(dispatch.insideQueue()) << "a system call was made on the bookkeeping queue";
    });
  }
  /// One held pair, with what its making logged forgotten.
  void holdPair() {
    EXPECT_EQ(manager.acquire(reason), primary);
    log.lines.clear();
  }
  void fail(SeamCall call, std::uint64_t number, KernReturn code) {
    mac.faults.failNth(call, number, {code, ""});
  }
  std::vector<IOPMAssertionID> releases() {
    std::vector<IOPMAssertionID> released;
    for (const std::string& call : mac.calls) {
      if (call.starts_with("release ")) {
        released.push_back(static_cast<IOPMAssertionID>(std::stoul(call.substr(8))));
      }
    }
    return released;
  }
  std::vector<std::string> inForce() {
    std::vector<std::string> types;
    for (const auto& each : mac.machine.power.assertions()) types.push_back(each.type);
    return types;
  }

  test::FakeLog log;
  test::RecordedMac mac;
  test::InlineDispatch dispatch;
  IOPMAssertionManager manager{mac.assertions, dispatch, log};
};

TEST_F(IOPMAssertionManagerTest, MakesOneQueueAndNoAssertion) {
  EXPECT_THAT(dispatch.labels, ElementsAre("com.korvel.app.helper.iopm"));
  EXPECT_THAT(mac.calls, IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, AcquireMakesAPairAndReturnsTheFirst) {
  EXPECT_EQ(manager.acquire(reason), primary);
  EXPECT_THAT(manager.held(), ElementsAre(primary, secondary));
  EXPECT_THAT(inForce(), ElementsAre("PreventUserIdleSystemSleep", "PreventSystemSleep"));
  EXPECT_THAT(log.lines,
              ElementsAre("default IOPMAssertion: acquired IOPMAssertion id=33001 "
                          "type=PreventUserIdleSystemSleep reason=Korvel: force-discharge",
                          "default IOPMAssertion: acquired secondary IOPMAssertion id=33002 "
                          "type=PreventSystemSleep paired=33001"));
}

TEST_F(IOPMAssertionManagerTest, BothAreMadeWithExactlyTheirProperties) {
  KeptProperties kept;
  IOPMAssertionManager(kept, dispatch, log).acquire(reason);
  ASSERT_EQ(kept.all.size(), 2U);
  EXPECT_EQ(kept.all[0],
            (PropertyValue::Dictionary{
                {"AssertType", "PreventUserIdleSystemSleep"},
                {"AssertLevel", 255},
                {"AssertName", reason},
                {"Details", "Korvel is force-discharging the battery to a target SoC."},
                {"TimeoutSeconds", 14400.0},
                {"TimeoutAction", "TimeoutActionRelease"}}));
  EXPECT_EQ(kept.all[1], (PropertyValue::Dictionary{{"AssertType", "PreventSystemSleep"},
                                                    {"AssertLevel", 255},
                                                    {"AssertName", reason},
                                                    {"TimeoutSeconds", 14400.0},
                                                    {"TimeoutAction", "TimeoutActionRelease"}}));
}

TEST_F(IOPMAssertionManagerTest, AFailedFirstAssertionGivesNoneAndNoSecond) {
  fail(SeamCall::assertionCreate, 1, ioReturnNotPrivileged);
  EXPECT_EQ(manager.acquire(reason), std::nullopt);
  EXPECT_THAT(mac.calls, ElementsAre("createWithProperties"));
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(log.lines, ElementsAre("fault IOPMAssertion: IOPMAssertionCreateWithProperties "
                                     "(UserIdleSystemSleep) failed: -536870207"));
}

TEST_F(IOPMAssertionManagerTest, AFailedSecondAssertionLeavesTheFirst) {
  fail(SeamCall::assertionCreate, 2, ioReturnError);
  EXPECT_EQ(manager.acquire(reason), primary);
  EXPECT_THAT(manager.held(), ElementsAre(primary));
  EXPECT_THAT(log.lines,
              ElementsAre("default IOPMAssertion: acquired IOPMAssertion id=33001 "
                          "type=PreventUserIdleSystemSleep reason=Korvel: force-discharge",
                          "error IOPMAssertion: secondary PreventSystemSleep assertion failed: "
                          "-536870212 — proceeding with idle assertion only"));
}

TEST_F(IOPMAssertionManagerTest, ALoneFirstAssertionIsReleasedWithoutASecondLine) {
  fail(SeamCall::assertionCreate, 2, ioReturnError);
  holdPair();
  manager.release(primary);
  EXPECT_THAT(releases(), ElementsAre(primary));
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, ReleaseReleasesBothOfAPair) {
  holdPair();
  manager.release(primary);
  EXPECT_THAT(releases(), ElementsAre(primary, secondary));
  EXPECT_THAT(inForce(), IsEmpty());
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(
      log.lines,
      ElementsAre("default IOPMAssertion: released paired secondary IOPMAssertion id=33002"));
}

TEST_F(IOPMAssertionManagerTest, APairIsForgottenOnceItIsReleased) {
  holdPair();
  manager.release(primary);
  manager.release(primary);
  EXPECT_THAT(releases(), ElementsAre(primary, secondary, primary));
}

TEST_F(IOPMAssertionManagerTest, AFailedReleaseIsLoggedAndStillForgotten) {
  holdPair();
  fail(SeamCall::assertionRelease, 1, ioReturnError);
  manager.release(primary);
  EXPECT_THAT(releases(), ElementsAre(primary, secondary));
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(
      log.lines,
      ElementsAre("error IOPMAssertion: IOPMAssertionRelease(33001) failed: -536870212",
                  "default IOPMAssertion: released paired secondary IOPMAssertion id=33002"));
}

TEST_F(IOPMAssertionManagerTest, AFailedSecondReleaseIsLoggedAndStillForgotten) {
  holdPair();
  fail(SeamCall::assertionRelease, 2, ioReturnBadArgument);
  manager.release(primary);
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(
      log.lines,
      ElementsAre("error IOPMAssertion: IOPMAssertionRelease(secondary 33002) failed: -536870206"));
}

TEST_F(IOPMAssertionManagerTest, ThePairIsForgottenBeforeTheSystemIsAsked) {
  holdPair();
  std::vector<std::vector<IOPMAssertionID>> heldAtTheCalls;
  mac.faults.observe([&](SeamCall) { heldAtTheCalls.push_back(manager.held()); });
  manager.release(primary);
  EXPECT_THAT(heldAtTheCalls, ElementsAre(IsEmpty(), IsEmpty()));
}

TEST_F(IOPMAssertionManagerTest, AReleaseWithinAReleaseFindsThePairForgotten) {
  holdPair();
  bool within = false;
  mac.faults.observe([&](SeamCall) {
    if (!std::exchange(within, true)) manager.release(primary);
  });
  manager.release(primary);
  EXPECT_THAT(releases(), ElementsAre(primary, primary, secondary))
      << "the second of the pair is released by the one who found it";
}

TEST_F(IOPMAssertionManagerTest, AnUnknownIdentifierIsReleasedOnceAndItsFailureLogged) {
  manager.release(4000000000U);
  EXPECT_THAT(releases(), ElementsAre(4000000000U));
  EXPECT_THAT(
      log.lines,
      ElementsAre("error IOPMAssertion: IOPMAssertionRelease(4000000000) failed: -536870160"));
}

TEST_F(IOPMAssertionManagerTest, ASecondReleasedDirectlyStaysInItsPair) {
  holdPair();
  manager.release(secondary);
  EXPECT_THAT(releases(), ElementsAre(secondary));
  EXPECT_THAT(manager.held(), ElementsAre(primary));
  manager.release(primary);
  EXPECT_THAT(releases(), ElementsAre(secondary, primary, secondary));
}

TEST_F(IOPMAssertionManagerTest, PairsAreIndependent) {
  manager.acquire("first");
  manager.acquire("second");
  EXPECT_THAT(manager.held(), ElementsAre(33001, 33002, 33003, 33004));
  manager.release(33001);
  EXPECT_THAT(manager.held(), ElementsAre(33003, 33004));
  EXPECT_THAT(inForce(), ElementsAre("PreventUserIdleSystemSleep", "PreventSystemSleep"));
}

TEST_F(IOPMAssertionManagerTest, ReleaseAllReleasesInOrderAndSilently) {
  holdPair();
  manager.acquire("another");
  log.lines.clear();
  fail(SeamCall::assertionRelease, 2, ioReturnError);
  manager.releaseAll();
  EXPECT_THAT(releases(), ElementsAre(33001, 33002, 33003, 33004));
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, ReleaseAllLeavesNothingInForceThatIsOutstanding) {
  manager.acquire("first");
  fail(SeamCall::assertionCreate, 4, ioReturnError);
  manager.acquire("second, and without its pair");
  manager.acquire("third");
  manager.release(33001);
  ASSERT_THAT(manager.held(), ElementsAre(33003, 33004, 33005));
  manager.releaseAll();
  EXPECT_THAT(releases(), ElementsAre(33001, 33002, 33003, 33004, 33005));
  EXPECT_THAT(inForce(), IsEmpty());
  EXPECT_THAT(manager.held(), IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, ReleaseAllForgetsThePairsToo) {
  holdPair();
  manager.releaseAll();
  manager.release(primary);
  EXPECT_THAT(releases(), ElementsAre(primary, secondary, primary));
}

TEST_F(IOPMAssertionManagerTest, ReleaseAllOfNothingMakesNoCall) {
  manager.releaseAll();
  EXPECT_THAT(releases(), IsEmpty());
}

TEST_F(IOPMAssertionManagerTest, AnAssertionAcquiredWhileAllAreReleasedIsForgotten) {
  holdPair();
  bool acquiring = false;
  mac.faults.observe([&](SeamCall) {
    if (!std::exchange(acquiring, true)) manager.acquire("late");
  });
  manager.releaseAll();
  EXPECT_THAT(releases(), ElementsAre(primary, secondary));
  EXPECT_THAT(manager.held(), IsEmpty());
  EXPECT_THAT(inForce(), ElementsAre("PreventUserIdleSystemSleep", "PreventSystemSleep"));
}

TEST_F(IOPMAssertionManagerTest, APairThatNobodyReleasesTimesOutAfterFourHours) {
  holdPair();
  mac.machine.advance(14399);
  EXPECT_EQ(inForce().size(), 2U);
  mac.machine.advance(1);
  EXPECT_THAT(inForce(), IsEmpty());
}

TEST(IOPMAssertionManagerLifeTest, DestroyingTheManagerReleasesNothing) {
  test::FakeLog log;
  test::RecordedMac mac;
  test::InlineDispatch dispatch;
  IOPMAssertionManager(mac.assertions, dispatch, log).acquire(reason);
  EXPECT_THAT(mac.calls, ElementsAre("createWithProperties", "createWithProperties"));
  EXPECT_EQ(mac.machine.power.assertions().size(), 2U);
}

}  // namespace
}  // namespace korvel
