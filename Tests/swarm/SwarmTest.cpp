#include <gtest/gtest.h>

#include <cstdio>
#include <exception>

#include "Tests/LongRun.h"
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

std::vector<std::uint64_t> seeds(std::uint64_t usual) {
  return longrun::seedsToPlay(longrun::ownEnvironment, usual);
}

void tellPlan(const SwarmPlan& plan) { std::printf("%s\n", plan.text().c_str()); }

TEST(SwarmTest, ComesRightAfterAnything) {
  int failed = 0;
  int runs = 0;
  for (const std::uint64_t seed : seeds(150)) {
    ++runs;
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
  RecordProperty("runs", runs);
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
