// One discharge leaves to the next nothing of its readings, and of its record the time of the last
// write.

#include <utility>

#include "DischargeDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

void start(Bench& bench, std::int64_t percent) {
  bench.charge(percent);
  ASSERT_EQ(outcome(bench.call(bench.app->forceDischarge(true))), "ok");
  bench.mark();
}

void expectThreeUnreadableTicks(Bench& bench) {
  start(bench, 70);
  bench.chargeUnreadable();
  bench.run(10);
  EXPECT_TRUE(bench.state().forceDischargeActive) << "two ticks were enough";
  EXPECT_THAT(bench.logs(), IsEmpty());
  bench.run(5);
  EXPECT_EQ(bench.logs().back(), "default force-discharge auto-stopped: reason=floorReached");
}

void outliveTheLastClient(Bench& bench) {
  bench.app->disconnect();
  bench.run(30);
  bench.app = bench.world.connectApp();
  bench.call(bench.app->ping());
}

TEST(NextDischargeTest, MinimumSeenStartsAfreshHoweverTheLastOneEnded) {
  using Ending = void (*)(Bench&);
  const std::vector<std::pair<std::string, Ending>> endings = {
      {"user stop", [](Bench& bench) { bench.call(bench.app->forceDischarge(false)); }},
      {"clear", [](Bench& bench) { bench.call(bench.app->clearChargeLimit()); }},
      {"suspension", outliveTheLastClient},
      {"top-off", [](Bench& bench) { bench.call(bench.app->releaseLimitUntilFullThenRestore()); }},
      {"reset", [](Bench& bench) { bench.call(bench.app->resetAllSMCKeys()); }},
  };
  for (const auto& [name, end] : endings) {
    Bench bench;
    bench.bootDischarging();
    bench.charge(52);
    bench.run(5);
    end(bench);
    ASSERT_FALSE(bench.state().forceDischargeActive) << name;
    start(bench, 60);
    bench.run(30);
    EXPECT_TRUE(bench.state().forceDischargeActive) << name << ": the lowest was another one's";
  }
}

TEST(NextDischargeTest, HasThreeUnreadableTicksAfterAStopForUnreadableOnes) {
  Bench bench;
  bench.bootDischarging();
  bench.chargeUnreadable();
  bench.run(15);
  ASSERT_FALSE(bench.state().forceDischargeActive);
  expectThreeUnreadableTicks(bench);
}

TEST(NextDischargeTest, HasThreeUnreadableTicksAfterAStopBeforeSleep) {
  Bench bench;
  bench.bootDischarging();
  bench.chargeUnreadable();
  bench.run(10);
  bench.mac().lid.close();
  bench.run(1);
  ASSERT_TRUE(bench.mac().power.isAsleep());
  bench.mac().lid.open();
  bench.mac().power.wake();
  bench.run(0);
  ASSERT_EQ(bench.onDisk().lastDischargeAbortReason,
            std::string(bannerCopy(DischargeStopReason::systemWillSleep)));
  expectThreeUnreadableTicks(bench);
}

TEST(NextDischargeTest, HasThreeUnreadableTicksAfterAStopForWithdrawnKeepAwake) {
  Bench bench;
  bench.mac().lid.connectDisplay();
  bench.bootArmedDischarge();
  bench.mac().lid.close();
  bench.chargeUnreadable();
  bench.run(10);
  bench.call(bench.app->setClamshellKeepAwake(false));
  bench.mac().lid.open();
  ASSERT_EQ(bench.onDisk().lastDischargeAbortReason,
            std::string(bannerCopy(DischargeStopReason::clamshellDisarmed)));
  expectThreeUnreadableTicks(bench);
}

TEST(NextDischargeTest, StopByItselfLeavesTheTimeOfTheLastWrite) {
  Bench bench;
  bench.bootDischarging();
  const HelperState before = bench.onDisk();
  bench.run(1);
  bench.charge(50);
  bench.run(5);
  HelperState expected = before;
  expected.forceDischargeActive = false;
  expected.lastDischargeAbortReason = std::string(bannerCopy(DischargeStopReason::targetReached));
  expected.lastDischargeAbortAt = Date{before.lastWriteAt.secondsSinceReference + 5};
  EXPECT_EQ(encodeFile(bench.onDisk()), encodeFile(expected));
  EXPECT_EQ(encodeFile(bench.state()), encodeFile(expected));
}

}  // namespace
}  // namespace korvel::test
