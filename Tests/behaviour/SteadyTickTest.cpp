// What a tick costs when nothing changes: its readings, one verified read a key, and nothing else.

#include <atomic>
#include <cstdlib>
#include <new>

#include "Tests/behaviour/Bench.h"

namespace {

std::atomic<std::int64_t> liveAllocations{0};

void* counted(std::size_t size) {
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) std::abort();
  ++liveAllocations;
  return memory;
}

void uncounted(void* memory) {
  if (memory == nullptr) return;
  --liveAllocations;
  std::free(memory);
}

}  // namespace

// The whole program counts its allocations, so that a test can see one that is never given back.
void* operator new(std::size_t size) { return counted(size); }
void* operator new[](std::size_t size) { return counted(size); }
void operator delete(void* memory) noexcept { uncounted(memory); }
void operator delete[](void* memory) noexcept { uncounted(memory); }
void operator delete(void* memory, std::size_t) noexcept { uncounted(memory); }
void operator delete[](void* memory, std::size_t) noexcept { uncounted(memory); }

namespace korvel::test {
namespace {

constexpr const char* readingsOfATick =
    "registryGetMatchingService 1, registryCreateProperty 1, registryObjectRelease 1, "
    "powerSourcesCopyInfo 1, powerSourcesCopyList 1, powerSourcesGetDescription 1, "
    "powerSourcesRelease 2";

/// The calls of one tick after things have become steady.
std::string callsOfATick(Bench& bench) {
  bench.run(10);
  bench.mark();
  const auto before = bench.world.callCounts();
  bench.run(5);
  EXPECT_THAT(bench.since("smc disk log"), IsEmpty());
  return (bench.world.callCounts() - before).text();
}

TEST(SteadyTickTest, AboveTheLimitItReadsOneKeyOnce) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(70);
  EXPECT_EQ(callsOfATick(bench), "smcCallStruct 1, " + std::string(readingsOfATick));
}

TEST(SteadyTickTest, BelowTheBandItReadsOneKeyOnce) {
  Bench bench;
  bench.bootWithLimit(50);
  bench.charge(30);
  EXPECT_EQ(callsOfATick(bench), "smcCallStruct 1, " + std::string(readingsOfATick));
}

TEST(SteadyTickTest, OlderPairReadsEachOfTheTwoKeysOnce) {
  Bench bench("older-pair");
  bench.bootWithLimit(50);
  bench.charge(70);
  EXPECT_EQ(callsOfATick(bench), "smcCallStruct 2, " + std::string(readingsOfATick));
}

TEST(SteadyTickTest, InsideTheBandAndOnBatteryItOnlyTakesItsReadings) {
  {
    Bench bench;
    bench.bootWithLimit(50);
    EXPECT_EQ(callsOfATick(bench), readingsOfATick);
  }
  {
    Bench bench;
    bench.bootWithLimit(50);
    bench.charge(90);
    bench.mac().adapter.disconnect();
    EXPECT_EQ(callsOfATick(bench), readingsOfATick);
  }
}

TEST(SteadyTickTest, MemoryStaysFlatOverAMillionTicks) {
  WorldOptions options;
  options.profile = "newer-keys";
  options.keepJournal = false;
  World world(options);
  world.machine().powerSources.overrideCurrentCapacity(79);
  world.startHelper();
  const auto app = world.connectApp();
  app->await(app->setChargeLimit(80));
  world.machine().powerSources.overrideCurrentCapacity(85);
  // The machine around it settles too: the battery reaches its held level.
  world.runFor(5.0 * 100'000);
  const auto callsBefore = world.callCounts();
  const std::int64_t before = liveAllocations;
  world.runFor(5.0 * 1'000'000);
  EXPECT_EQ(liveAllocations - before, 0);
  const auto made = world.callCounts() - callsBefore;
  EXPECT_EQ(made[SeamCall::powerSourcesCopyInfo], 1'000'000U);
  EXPECT_EQ(made[SeamCall::smcCallStruct], 1'000'000U);
  EXPECT_EQ(made[SeamCall::logEmit], 0U);
  EXPECT_EQ(made[SeamCall::fileUmask], 0U);
}

}  // namespace
}  // namespace korvel::test
