#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "Tests/swarm/Swarm.h"
#include "Tests/sweeps/CurrentCase.h"

namespace swarm {

namespace {

/// The outcome of a run, printed with its plan when there are findings.
struct Result {
  std::uint64_t hash = 0;
  std::string findings;
  std::string journalTail;
};

Result run(const SwarmPlan& plan) {
  const sweeps::CurrentCase announced("swarm, KORVEL_SEED=" + std::to_string(plan.seed));
  sweeps::Findings findings;
  Swarm swarm(plan);
  try {
    swarm.rage(findings);
    if (findings.empty()) swarm.healAndConverge(findings);
  } catch (const std::exception& problem) {
    findings.note(std::string("exception: ") + problem.what());
  }
  return {swarm.hash(), findings.text(), findings.empty() ? "" : swarm.journalTail()};
}

std::uint64_t number(const char* variable, std::uint64_t otherwise) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* value = std::getenv(variable);
  return value == nullptr ? otherwise : std::strtoull(value, nullptr, 10);
}

/// KORVEL_SEED selects one seed, KORVEL_SEEDS the number of seeds from 1 on.
std::vector<std::uint64_t> seeds(std::uint64_t usual) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  if (std::getenv("KORVEL_SEED") != nullptr) return {number("KORVEL_SEED", 0)};
  std::vector<std::uint64_t> all;
  for (std::uint64_t seed = 1; seed <= number("KORVEL_SEEDS", usual); ++seed) all.push_back(seed);
  return all;
}

void tellPlan(const SwarmPlan& plan) { std::printf("%s\n", plan.text().c_str()); }

TEST(SwarmTest, ComesRightAfterAnything) {
  int failed = 0;
  for (const std::uint64_t seed : seeds(150)) {
    const SwarmPlan plan = planFor(seed);
    tellPlan(plan);
    const Result result = run(plan);
    if (result.findings.empty()) continue;
    ADD_FAILURE() << "found:\n"
                  << result.findings << "journal:\n"
                  << result.journalTail << plan.text() << "\nagain: KORVEL_SEED=" << seed
                  << " korvel_swarm_tests --gtest_filter=SwarmTest.ComesRightAfterAnything";
    if (++failed == 3) break;
  }
}

TEST(SwarmTest, RunsTheSameFromTheSameSeed) {
  for (const std::uint64_t seed : seeds(10)) {
    const SwarmPlan plan = planFor(seed);
    tellPlan(plan);
    EXPECT_EQ(run(plan).hash, run(plan).hash);
  }
}

TEST(SwarmTest, RunsOtherwiseFromAnotherSeed) {
  SwarmPlan plan = planFor(1);
  const std::uint64_t first = run(plan).hash;
  plan.seed = 2;
  EXPECT_NE(run(plan).hash, first);
}

}  // namespace

}  // namespace swarm
