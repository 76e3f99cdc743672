// The inputs that fuzzing has kept, each given to its target again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "Tests/fuzz/Replay.h"

namespace korvel::fuzz {
namespace {

const std::filesystem::path corpus = KORVEL_FUZZ_CORPUS;

void expectAllIsWell(std::string_view name) {
  const Target* target = targetNamed(name);
  ASSERT_NE(target, nullptr) << name;
  const Replayed result = replay(*target, corpus / name);
  EXPECT_GT(result.inputs, 0U);
  EXPECT_THAT(result.misbehaved, testing::IsEmpty());
}

TEST(FuzzCorpus, StateFile) { expectAllIsWell("state-file"); }
TEST(FuzzCorpus, Date) { expectAllIsWell("date"); }
TEST(FuzzCorpus, Frames) { expectAllIsWell("frames"); }
TEST(FuzzCorpus, Messages) { expectAllIsWell("messages"); }
TEST(FuzzCorpus, MachineCalls) { expectAllIsWell("machine-calls"); }
TEST(FuzzCorpus, MachineAnswers) { expectAllIsWell("machine-answers"); }
TEST(FuzzCorpus, Requirement) { expectAllIsWell("requirement"); }
TEST(FuzzCorpus, Scenario) { expectAllIsWell("scenario"); }
TEST(FuzzCorpus, Profile) { expectAllIsWell("profile"); }
TEST(FuzzCorpus, Journal) { expectAllIsWell("journal"); }
TEST(FuzzCorpus, RegistryMerge) { expectAllIsWell("registry-merge"); }

// Each folder has a test above, as each of them names a target.
TEST(FuzzCorpusTest, EveryTargetHasAFolderAndATest) {
  std::set<std::string> folders;
  for (const auto& entry : std::filesystem::directory_iterator(corpus))
    folders.insert(entry.path().filename().string());
  std::set<std::string> names;
  for (const Target& target : targets) names.emplace(target.name);
  EXPECT_EQ(folders, names);
  const testing::TestSuite* suite = nullptr;
  for (int index = 0; index < testing::UnitTest::GetInstance()->total_test_suite_count(); ++index) {
    const auto* each = testing::UnitTest::GetInstance()->GetTestSuite(index);
    if (std::string_view(each->name()) == "FuzzCorpus") suite = each;
  }
  ASSERT_NE(suite, nullptr);
  EXPECT_EQ(static_cast<std::size_t>(suite->total_test_count()), names.size());
}

TEST(FuzzCorpusTest, AMistakeIsToldWithTheFileThatReachesIt) {
  std::string pattern = testing::TempDir() + "korvel-planted-corpus-XXXXXX";
  ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
  const std::filesystem::path folder = pattern;
  std::ofstream(folder / "harmless") << "nothing";
  std::ofstream(folder / "reaches-it") << "mistake";
  const Target planted{"planted", [](std::string_view input) {
                         require(input != "mistake", "the planted mistake");
                       }};
  const Replayed result = replay(planted, folder);
  std::filesystem::remove_all(folder);
  EXPECT_EQ(result.inputs, 2U);
  EXPECT_THAT(result.misbehaved,
              testing::ElementsAre((folder / "reaches-it").string() + ": the planted mistake"));
}

}  // namespace
}  // namespace korvel::fuzz
