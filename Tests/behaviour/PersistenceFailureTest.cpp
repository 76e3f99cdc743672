// A failed write of the record is logged; after a failed replacement the memory is also reverted to
// the record on disk.

#include <cerrno>

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

using PersistenceFailureTest = OnBench;

TEST_F(PersistenceFailureTest, FailedWriteIsAFaultLineAndTheCommandSucceeds) {
  bootAt(59);
  mac().disk.full = true;
  EXPECT_EQ(ask(app->setChargeLimit(60)), "ok");
  ASSERT_EQ(logs().size(), 2U);
  EXPECT_THAT(logs()[1], ::testing::StartsWith("fault persistence.write failed: write failed: "));
  EXPECT_EQ(state().chargeLimit, 60) << "a write that failed before the rename keeps memory";
  EXPECT_EQ(onDisk().chargeLimit, 80);
}

TEST_F(PersistenceFailureTest, UnusableDirectoryIsAFaultLineOnly) {
  boot();
  mac().disk.failCall("chmod", 1);
  EXPECT_EQ(ask(app->setChargeLimit(60)), "ok");
  EXPECT_THAT(logs()[1], ::testing::StartsWith("fault persistence.write failed: mkdir failed: "));
  EXPECT_EQ(state().chargeLimit, 60);
}

TEST_F(PersistenceFailureTest, ReadBackThatFailsIsAFaultLineAndNothingIsReverted) {
  bootAt(59);
  mac().disk.failCall("readFile", EIO);
  EXPECT_EQ(ask(app->setChargeLimit(60)), "ok");
  ASSERT_EQ(logs().size(), 2U);
  EXPECT_THAT(logs()[1],
              ::testing::StartsWith("fault persistence.write failed: read-back verify failed: "));
  EXPECT_EQ(state().chargeLimit, 60);
  EXPECT_EQ(onDisk().chargeLimit, 60) << "the new file stands; only its check failed";
}

// Clients know a code for it, 502, and never see it.
TEST_F(PersistenceFailureTest, NoCommandEverReportsThatItsRecordCouldNotBeWritten) {
  bootAt(90);
  mac().disk.full = true;
  for (const auto& [name, command] : everyCommand()) {
    mark();
    EXPECT_EQ(ask(command(*app)), "ok") << name;
    EXPECT_THAT(logs(), ::testing::Contains(::testing::StartsWith(
                            "fault persistence.write failed: write failed: ")))
        << name << " wrote no record, so the above proves nothing";
  }
}

TEST_F(PersistenceFailureTest, FailedRenameRevertsTheMemoryToTheDisk) {
  bootAt(59);
  mac().disk.replaceFails = true;
  EXPECT_EQ(ask(app->setChargeLimit(60)), "ok");
  const Lines lines = logs();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_THAT(lines[1],
              ::testing::StartsWith("fault persistence.write failed: atomic rename failed: "));
  EXPECT_EQ(lines[2],
            "default persistence rename failure — reverted in-memory state to last durable "
            "snapshot");
  EXPECT_EQ(state().chargeLimit, 80);
}

TEST_F(PersistenceFailureTest, RevertToARecordWithoutDischargeUndoesTheDischargeInTheHardware) {
  bootWithLimit(50, 70);
  call(app->setClamshellKeepAwake(true));
  mac().disk.replaceFails = true;
  mark();
  EXPECT_EQ(ask(app->forceDischarge(true)), "ok");
  // Disarming persists once more, fails once more, and so releases the inflow a second time.
  EXPECT_THAT(since("smc power"),
              ElementsAre("smc CHIE <- 08", ::testing::StartsWith("power assertion 33001 created"),
                          ::testing::StartsWith("power assertion 33002 created"), "smc CHIE <- 00",
                          "power assertion 33001 released", "power assertion 33002 released",
                          "power SleepDisabled = 0", "smc CHIE <- 00"));
  EXPECT_FALSE(state().forceDischargeActive);
}

TEST_F(PersistenceFailureTest, RevertOnTheOlderFamilyReleasesBothKeysInReverse) {
  Bench bench("older-pair");
  bench.boot();
  bench.mac().disk.replaceFails = true;
  bench.charge(40);
  bench.call(bench.app->setChargeLimit(80));
  EXPECT_THAT(bench.since("smc"), ElementsAre("smc CH0J <- 00", "smc CH0I <- 00"));
}

TEST_F(PersistenceFailureTest, RevertToARecordWithADischargeLeavesTheHardwareAlone) {
  bootDischarging();
  mac().disk.replaceFails = true;
  EXPECT_EQ(ask(app->forceDischarge(false)), "ok");
  EXPECT_TRUE(state().forceDischargeActive);
  EXPECT_THAT(since("smc power"),
              ElementsAre("smc CHIE <- 00", "smc CHTE <- 01 00 00 00",
                          "power assertion 33001 released", "power assertion 33002 released"))
      << "all of it the stop's own";
  EXPECT_THAT(logs().back(),
              "default persistence rename failure — reverted in-memory state to last durable "
              "snapshot");
}

TEST_F(PersistenceFailureTest, FailedRenameWhileArmingLeavesTheSettingWithoutAnOwner) {
  boot();
  mac().disk.replaceFails = true;
  EXPECT_EQ(ask(app->setClamshellKeepAwake(true)), "ok");
  EXPECT_TRUE(mac().power.sleepDisabled());
  EXPECT_FALSE(state().sleepDisabledByKorvel);
  mac().disk.replaceFails = false;
  EXPECT_EQ(ask(app->setClamshellKeepAwake(false)), "ok");
  EXPECT_TRUE(mac().power.sleepDisabled());
  EXPECT_EQ(logs().back(),
            "default clamshell keep-awake DISARMED (SleepDisabled left as found — set externally)");
}

TEST_F(PersistenceFailureTest, PauseBeforeSleepGoesByTheLimitBeforeTheDischargeWasStopped) {
  // The stop before sleep cannot be recorded, and so brings another limit back into the record.
  for (const auto& [before, durable] : {std::pair{50, 100}, std::pair{100, 50}}) {
    Bench bench;
    bench.bootDischarging();
    bench.chargeUnreadable();  // Keeps the new limit's ticks from ending the discharge.
    bench.call(bench.app->setChargeLimit(static_cast<std::uint8_t>(before)));
    ASSERT_TRUE(bench.state().forceDischargeActive);
    bench.saveState(savedLimit(durable));
    bench.mac().disk.replaceFails = true;
    bench.mark();
    bench.mac().lid.close();
    bench.run(1);
    EXPECT_TRUE(bench.mac().power.isAsleep());
    EXPECT_EQ(bench.key("CHTE"), before == 50 ? "01 00 00 00" : "00 00 00 00") << before;
    bench.mac().lid.open();
    bench.run(1);
    EXPECT_EQ(bench.state().chargeLimit, durable) << "nothing was reverted, so nothing is shown";
  }
}

TEST_F(PersistenceFailureTest, RenameThatFailsForEverDoesNotRecurseForEver) {
  bootArmedDischarge();
  mac().disk.replaceFails = true;
  EXPECT_EQ(ask(app->clearChargeLimit()), "ok");
  EXPECT_EQ(world.logCount("persistence rename failure — reverted in-memory state to last "
                           "durable snapshot"),
            2U)
      << "once for the disarming, once for the end";
}

}  // namespace
}  // namespace korvel::test
