// A discharge takes over no readings from the one before it, and only the time of the last write
// from its record.

#include <utility>

#include "DischargeDecision.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

void start(Bench& bench, std::int64_t percent) {
  bench.charge(percent);
  ASSERT_EQ(bench.ask(bench.app->forceDischarge(true)), "ok");
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

using NextDischargeTest = OnBench;

TEST_F(NextDischargeTest, MinimumSeenStartsAfreshHoweverTheLastOneEnded) {
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
    bench.tickAt(52);
    end(bench);
    ASSERT_FALSE(bench.state().forceDischargeActive) << name;
    start(bench, 60);
    bench.run(30);
    EXPECT_TRUE(bench.state().forceDischargeActive) << name << ": the lowest was another one's";
  }
}

TEST_F(NextDischargeTest, HasThreeUnreadableTicksAfterAStopForUnreadableOnes) {
  bootDischarging();
  chargeUnreadable();
  run(15);
  ASSERT_FALSE(state().forceDischargeActive);
  expectThreeUnreadableTicks(*this);
}

TEST_F(NextDischargeTest, HasThreeUnreadableTicksAfterAStopBeforeSleep) {
  bootDischarging();
  chargeUnreadable();
  run(10);
  mac().lid.close();
  run(1);
  ASSERT_TRUE(mac().power.isAsleep());
  mac().lid.open();
  mac().power.wake();
  run(0);
  ASSERT_EQ(onDisk().lastDischargeAbortReason, bannerCopy(DischargeStopReason::systemWillSleep));
  expectThreeUnreadableTicks(*this);
}

TEST_F(NextDischargeTest, HasThreeUnreadableTicksAfterAStopForWithdrawnKeepAwake) {
  bootDockedDischarge();
  mac().lid.close();
  chargeUnreadable();
  run(10);
  call(app->setClamshellKeepAwake(false));
  mac().lid.open();
  ASSERT_EQ(onDisk().lastDischargeAbortReason, bannerCopy(DischargeStopReason::clamshellDisarmed));
  expectThreeUnreadableTicks(*this);
}

TEST_F(NextDischargeTest, StopByItselfLeavesTheTimeOfTheLastWrite) {
  bootDischarging();
  const HelperState before = onDisk();
  run(1);
  tickAt(50);
  HelperState expected = before;
  expected.forceDischargeActive = false;
  expected.lastDischargeAbortReason = std::string(bannerCopy(DischargeStopReason::targetReached));
  expected.lastDischargeAbortAt = Date{before.lastWriteAt.secondsSinceReference + 5};
  EXPECT_EQ(encodeFile(onDisk()), encodeFile(expected));
  EXPECT_EQ(encodeFile(state()), encodeFile(expected));
}

}  // namespace
}  // namespace korvel::test
