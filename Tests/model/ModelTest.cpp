#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "Tests/model/Story.h"

namespace model {

namespace {

constexpr std::uint64_t slices = 8;

std::uint64_t number(const char* variable, std::uint64_t otherwise) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* value = std::getenv(variable);
  return value == nullptr ? otherwise : std::strtoull(value, nullptr, 10);
}

/// KORVEL_SEED selects one seed; KORVEL_FIRST_SEED and KORVEL_SEEDS a range, and KORVEL_SHARD "I/N"
/// every Nth of it, from the Ith on. Each slice gets an equal part of them, so that slices can be
/// played side by side; one seed is the first slice's.
std::vector<std::uint64_t> seeds(std::uint64_t usual, std::uint64_t slice) {
  if (const std::uint64_t one = number("KORVEL_SEED", 0); one != 0) {
    return slice == 0 ? std::vector{one} : std::vector<std::uint64_t>{};
  }
  std::uint64_t shard = 1;
  std::uint64_t shards = 1;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  if (const char* value = std::getenv("KORVEL_SHARD")) {
    char* rest = nullptr;
    shard = std::strtoull(value, &rest, 10);
    shards = *rest == '/' ? std::strtoull(rest + 1, nullptr, 10) : 0;
    if (shard == 0 || shard > shards) {
      throw std::invalid_argument(std::string("KORVEL_SHARD is ") + value +
                                  ", not I/N with 1 <= I <= N");
    }
  }
  std::vector<std::uint64_t> all;
  const std::uint64_t first = number("KORVEL_FIRST_SEED", 1);
  const std::uint64_t end = number("KORVEL_SEEDS", usual);
  for (std::uint64_t i = shard - 1 + slice * shards; i < end; i += shards * slices) {
    all.push_back(first + i);
  }
  return all;
}

std::string told(const Story& story, const Difference& found) {
  return "at " + std::to_string(static_cast<double>(found.at) / 1e9) + " s the model expected\n  " +
         found.expected + "\nand the program did\n  " + found.happened + "\nin " + story.text() +
         "again: KORVEL_SEED=" + std::to_string(story.seed) +
         " korvel_model_tests --gtest_filter=*AgreesWithTheProgram/0";
}

class ModelTest : public testing::TestWithParam<std::uint64_t> {};

TEST_P(ModelTest, AgreesWithTheProgram) {
  int failed = 0;
  Reach reach;
  for (const std::uint64_t seed : seeds(2000, GetParam())) {
    const Story story = storyFor(seed);
    const Played run = played(story);
    reach.add(run);
    if (!compared(run, 0, &reach)) continue;
    const Story least = shortest(story);
    ADD_FAILURE() << told(least, *compared(played(least)));
    if (++failed == 3) break;
  }
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  if (const char* directory = std::getenv("KORVEL_REACH")) {
    std::ofstream file(std::string(directory) + "/reach." + std::to_string(GetParam()));
    for (const std::string& line : reach.lines) file << line << '\n';
    EXPECT_TRUE(file.flush()) << "KORVEL_REACH is " << directory << ", not a directory";
  }
}

INSTANTIATE_TEST_SUITE_P(Slice, ModelTest, testing::Range(std::uint64_t{0}, slices));

/// Each mistake is found in some story, and its shortest story still shows it.
class PlantedMistakeTest : public testing::TestWithParam<int> {};

TEST_P(PlantedMistakeTest, IsFound) {
  constexpr std::uint64_t most = 400;
  for (std::uint64_t seed = 1; seed <= most; ++seed) {
    const Story story = storyFor(seed);
    if (!compared(played(story), GetParam())) continue;
    const Story least = shortest(story, GetParam());
    EXPECT_LE(least.deeds.size(), story.deeds.size());
    EXPECT_TRUE(compared(played(least), GetParam())) << least.text();
    EXPECT_FALSE(compared(played(least))) << least.text();
    return;
  }
  ADD_FAILURE() << "no story of the first " << most << " shows mistake " << GetParam();
}

INSTANTIATE_TEST_SUITE_P(Each, PlantedMistakeTest, testing::Range(1, 11));

}  // namespace

}  // namespace model
