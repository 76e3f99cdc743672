#include <gtest/gtest.h>

#include <fstream>

#include "Tests/LongRun.h"
#include "Tests/model/Story.h"
#include "Tests/model/reference/Record.h"

namespace model {

namespace {

constexpr std::uint64_t slices = 8;

/// Slices can be played side by side: each takes an equal part of the seeds.
std::vector<std::uint64_t> seedsOf(std::uint64_t slice) {
  const longrun::Shard part{slice + 1, slices};
  std::vector<std::uint64_t> seeds;
  for (std::uint64_t number = 0;
       const std::uint64_t seed : longrun::seedsToPlay(longrun::ownEnvironment, 2000)) {
    if (part.takes(number++)) seeds.push_back(seed);
  }
  return seeds;
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
  int stories = 0;
  Reach reach;
  for (const std::uint64_t seed : seedsOf(GetParam())) {
    ++stories;
    const Story story = storyFor(seed);
    const Played run = played(story);
    reach.add(run);
    if (!compared(run, 0, &reach)) continue;
    const Story least = shortest(story);
    ADD_FAILURE() << told(least, *compared(played(least)));
    if (++failed == 3) break;
  }
  RecordProperty("stories", stories);
  if (const char* directory = longrun::ownEnvironment("KORVEL_REACH")) {
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

TEST(ForeignRecordTest, OfThoseThatAreDrawnSomeCanBeReadAndSomeCannot) {
  constexpr int drawn = 1000;
  int read = 0;
  for (std::uint64_t seed = 0; seed < drawn; ++seed) {
    if (recordFrom(foreignRecord(seed))) ++read;
  }
  EXPECT_GT(read, drawn / 4);
  EXPECT_LT(read, drawn * 3 / 4);
}

}  // namespace

}  // namespace model
