#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SMCWriter.h"
#include "Tests/unit/FakesLog.h"
#include "Tests/unit/ScriptedSMC.h"

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const std::vector<std::string> markers = {"CHTE", "CH0B", "CH0C", "CHIE", "CH0I"};

class SMCProbeTest : public testing::Test {
 protected:
  SMCWriter opened() { return SMCWriter(smc, Logger(log, "SMCWriter")); }
  /// Of the five keys, the machine has these and no others.
  void have(const std::vector<std::string>& keys) {
    for (const std::string& key : markers) smc.controller().removeKey(key);
    for (const std::string& key : keys) smc.add(key, 1);
  }

  test::FakeLog log;
  test::ScriptedSMC smc;
};

TEST_F(SMCProbeTest, AsksForTheFiveKeysInOrderAndReadsNothing) {
  SMCWriter writer = opened();
  smc.forgetCalls();
  EXPECT_EQ(writer.probeCapabilities(), HelperCapabilities::none());
  EXPECT_THAT(smc.calls,
              ElementsAre("info CHTE", "info CH0B", "info CH0C", "info CHIE", "info CH0I"));
  EXPECT_THAT(log.lines,
              ElementsAre("default SMCWriter: capability probe: tahoeC=0 preTahoeC=0 (metaB=0 "
                          "metaC=0) tahoeD=0 preTahoeD=0"));
}

TEST_F(SMCProbeTest, TheNewerFamilyWinsWhileTheLogShowsTheOlderKeys) {
  have(markers);
  EXPECT_EQ(opened().probeCapabilities(), (HelperCapabilities{true, false, true, false, false}));
  EXPECT_THAT(log.lines,
              ElementsAre("default SMCWriter: capability probe: tahoeC=1 preTahoeC=0 (metaB=1 "
                          "metaC=1) tahoeD=1 preTahoeD=0"));
}

TEST_F(SMCProbeTest, WithAllThreeChargingKeysTheLogShowsTheOlderPairThatIsNotReported) {
  have({"CHTE", "CH0B", "CH0C"});
  EXPECT_EQ(opened().probeCapabilities(), (HelperCapabilities{true, false, false, false, false}));
  EXPECT_THAT(log.lines,
              ElementsAre("default SMCWriter: capability probe: tahoeC=1 preTahoeC=0 (metaB=1 "
                          "metaC=1) tahoeD=0 preTahoeD=0"));
}

TEST_F(SMCProbeTest, WithBothDischargeKeysOnlyTheNewerIsReportedAndLogged) {
  have({"CHIE", "CH0I"});
  EXPECT_EQ(opened().probeCapabilities(), (HelperCapabilities{false, false, true, false, false}));
  EXPECT_THAT(log.lines,
              ElementsAre("default SMCWriter: capability probe: tahoeC=0 preTahoeC=0 (metaB=0 "
                          "metaC=0) tahoeD=1 preTahoeD=0"));
}

TEST_F(SMCProbeTest, HalfOfTheOlderPairIsNotEnough) {
  smc.add("CH0B", 1);
  EXPECT_FALSE(opened().probeCapabilities().preTahoeCharging);
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("preTahoeC=0 (metaB=1 metaC=0)")));
}

TEST_F(SMCProbeTest, EveryCombinationOfKeysGivesOneFamilyOfEachKindAtMost) {
  for (unsigned bits = 0; bits < 32; ++bits) {
    const auto has = [&](std::size_t index) { return (bits >> index & 1U) != 0; };
    std::vector<std::string> present;
    for (std::size_t index = 0; index < markers.size(); ++index) {
      if (has(index)) present.push_back(markers[index]);
    }
    have(present);
    HelperCapabilities expected;
    if (has(0)) {
      expected.tahoeCharging = true;
    } else if (has(1) && has(2)) {
      expected.preTahoeCharging = true;
    }
    if (has(3)) {
      expected.tahoeDischarge = true;
    } else if (has(4)) {
      expected.preTahoeDischarge = true;
    }
    EXPECT_EQ(opened().probeCapabilities(), expected) << bits;
  }
}

TEST_F(SMCProbeTest, TheKeysSizeTypeAndValueDoNotMatter) {
  smc.add("CHTE", 0, {}, std::string(4, '\0'), 0);
  smc.add("CHIE", 200, {1, 2, 3}, "\xFF\xFF\xFF\xFF", 0xFF);
  const HelperCapabilities found = opened().probeCapabilities();
  EXPECT_TRUE(found.tahoeCharging);
  EXPECT_TRUE(found.tahoeDischarge);
}

TEST_F(SMCProbeTest, AFailedKeyInfoOnlyMakesItsOwnKeyAbsent) {
  for (std::size_t failing = 0; failing < markers.size(); ++failing) {
    for (const test::ScriptedSMC::Answer answer :
         {test::ScriptedSMC::Answer{ioReturnError, 0}, {0, 132}, {0, 1}}) {
      have({markers.begin() + static_cast<std::ptrdiff_t>(failing), markers.end()});
      SMCWriter writer = opened();
      smc.forgetCalls();
      smc.answers = {{failing + 1, answer}};
      const HelperCapabilities found = writer.probeCapabilities();
      EXPECT_EQ(smc.callNumber, markers.size());
      EXPECT_FALSE(found.tahoeCharging);
      EXPECT_EQ(found.preTahoeCharging, failing == 0);
      EXPECT_EQ(found.tahoeDischarge, failing < 3);
      EXPECT_EQ(found.preTahoeDischarge, failing == 3);
    }
  }
}

TEST_F(SMCProbeTest, WithoutAnSMCEveryKeyTriesToReopenAndIsAbsent) {
  for (std::size_t number = 1; number <= 6; ++number) smc.answers[number] = {ioReturnNoDevice};
  SMCWriter writer = opened();
  smc.calls.clear();
  log.lines.clear();
  EXPECT_EQ(writer.probeCapabilities(), HelperCapabilities::none());
  EXPECT_THAT(smc.calls, ElementsAre("match", "match", "match", "match", "match"));
  ASSERT_EQ(log.lines.size(), 11U);
  for (std::size_t key = 0; key < 5; ++key) {
    EXPECT_EQ(log.lines[2 * key], "fault SMCWriter: AppleSMC service not found at init");
    EXPECT_EQ(log.lines[2 * key + 1],
              "fault SMCWriter: AppleSMC reopen failed — writes will continue to fail until "
              "launchd respawns");
  }
}

TEST_F(SMCProbeTest, AnSMCThatAppearsMidwayIsUsedForTheRest) {
  have(markers);
  smc.answers[1] = {ioReturnNoDevice};
  smc.answers[2] = {ioReturnNoDevice};  // the reopen for "CHTE"
  EXPECT_EQ(opened().probeCapabilities(), (HelperCapabilities{false, true, true, false, false}));
}

TEST_F(SMCProbeTest, AStaleConnectionIsReopenedDuringTheProbe) {
  have(markers);
  SMCWriter writer = opened();
  smc.forgetCalls();
  smc.answers[1] = {ioReturnNotOpen};
  EXPECT_EQ(writer.probeCapabilities(), (HelperCapabilities{true, false, true, false, false}));
  EXPECT_EQ(smc.lookUps(), 1U);
}

TEST_F(SMCProbeTest, TheFirstWriteAfterAProbeNeedsNoKeyInfo) {
  smc.add("CHTE", 4);
  SMCWriter writer = opened();
  writer.probeCapabilities();
  smc.forgetCalls();
  EXPECT_TRUE(writer.writeKey("CHTE", ByteList{1, 0, 0, 0}));
  EXPECT_THAT(smc.calls, ElementsAre("write CHTE [1, 0, 0, 0]"));
}

TEST_F(SMCProbeTest, TheKeyInfoOfAllFiveKeysIsRemembered) {
  have(markers);
  SMCWriter writer = opened();
  writer.probeCapabilities();
  smc.forgetCalls();
  for (const std::string& key : markers) EXPECT_TRUE(writer.readKey(key));
  EXPECT_THAT(smc.calls,
              ElementsAre("read CHTE", "read CH0B", "read CH0C", "read CHIE", "read CH0I"));
}

}  // namespace
}  // namespace korvel
