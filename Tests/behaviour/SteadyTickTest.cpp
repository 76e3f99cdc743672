// When nothing changes, a tick makes its readings and one verified read per key, and no more.

#include <cstdint>
#include <cstdlib>

#include "HelperImpl.h"
#include "Platform/PowerSources.h"
#include "Tests/Allocations.h"
#include "Tests/LateDispatch.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"

namespace korvel::test {
namespace {

constexpr const char* readingsOfATick =
    "registryGetMatchingService 1, registryCreateProperty 1, registryObjectRelease 1, "
    "powerSourcesCopyInfo 1, powerSourcesCopyList 1, powerSourcesGetDescription 1, "
    "powerSourcesRelease 2";

/// Gives the calls of one tick after everything has settled.
std::string callsOfATick(Bench& bench) {
  bench.run(10);
  bench.mark();
  const std::string calls = bench.callsDuring(5).text();
  EXPECT_THAT(bench.since("smc disk log"), IsEmpty());
  return calls;
}

using SteadyTickTest = OnBench;

TEST_F(SteadyTickTest, AboveTheLimitItReadsOneKeyOnce) {
  bootWithLimit(50, 70);
  EXPECT_EQ(callsOfATick(*this), "smcCallStruct 1, " + std::string(readingsOfATick));
}

TEST_F(SteadyTickTest, BelowTheBandItReadsOneKeyOnce) {
  bootWithLimit(50, 30);
  EXPECT_EQ(callsOfATick(*this), "smcCallStruct 1, " + std::string(readingsOfATick));
}

TEST_F(SteadyTickTest, OlderPairReadsEachOfTheTwoKeysOnce) {
  Bench bench("older-pair");
  bench.bootWithLimit(50, 70);
  EXPECT_EQ(callsOfATick(bench), "smcCallStruct 2, " + std::string(readingsOfATick));
}

TEST_F(SteadyTickTest, InsideTheBandAndOnBatteryItOnlyTakesItsReadings) {
  bootWithLimit(50);
  EXPECT_EQ(callsOfATick(*this), readingsOfATick);
  charge(90);
  mac().adapter.disconnect();
  EXPECT_EQ(callsOfATick(*this), readingsOfATick);
}

TEST_F(SteadyTickTest, AllocatesOnlyThePlatformsListOfPowerSources) {
  World quiet;  // Nobody checks it: the invariants allocate when they hear of calls.
  quiet.machine().powerSources.overrideCurrentCapacity(90);
  Platform& real = quiet.startBareHelper();
  LateDispatch dispatch(real.dispatch);
  Platform platform = with(real, dispatch);
  const auto core = HelperImpl::create(platform);
  core->clientDidConnect();
  core->setChargeLimit(60, ignored());
  quiet.runFor(20);
  std::int64_t ofATick = 0;
  std::int64_t ofTheList = 0;
  const auto [queue, due] = dispatch.lastTimer();
  queue->async([&, tick = due] {
    const HandleRef snapshot = platform.powerSources.copyInfo();
    std::int64_t before = allocations::made();
    const PowerSourceList list = platform.powerSources.copyList(snapshot);
    ofTheList = allocations::made() - before;
    platform.powerSources.release(list.handle);
    platform.powerSources.release(snapshot);
    before = allocations::made();
    tick();
    ofATick = allocations::made() - before;
  });
  const auto callsBefore = quiet.callCounts();
  quiet.runUntilIdle();
  EXPECT_EQ((quiet.callCounts() - callsBefore)[SeamCall::smcCallStruct], 1U);
  EXPECT_EQ(ofTheList, 1);
  EXPECT_EQ(ofATick, ofTheList);
}

/// KORVEL_TICKS asks for another number of them.
std::uint64_t ticksToWatch() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* asked = std::getenv("KORVEL_TICKS");
  return asked == nullptr ? 100'000 : std::strtoull(asked, nullptr, 10);
}

TEST_F(SteadyTickTest, MemoryStaysFlatOverManyTicks) {
  const std::uint64_t watched = ticksToWatch();
  WorldOptions options;
  options.profile = "newer-keys";
  options.keepJournal = false;
  World quiet(options);
  quiet.machine().powerSources.overrideCurrentCapacity(79);
  quiet.startHelper();
  const auto client = quiet.connectApp();
  client->await(client->setChargeLimit(80));
  quiet.machine().powerSources.overrideCurrentCapacity(85);
  // The rest of the machine settles too: the battery reaches the level at which it is held.
  quiet.runFor(5.0 * 100'000);
  const auto callsBefore = quiet.callCounts();
  const std::int64_t before = allocations::live();
  quiet.runFor(5.0 * static_cast<double>(watched));
  EXPECT_EQ(allocations::live() - before, 0);
  const auto made = quiet.callCounts() - callsBefore;
  EXPECT_EQ(made[SeamCall::powerSourcesCopyInfo], watched);
  EXPECT_EQ(made[SeamCall::smcCallStruct], watched);
  EXPECT_EQ(made[SeamCall::logEmit], 0U);
  EXPECT_EQ(made[SeamCall::fileUmask], 0U);
}

}  // namespace
}  // namespace korvel::test
