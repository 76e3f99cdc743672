#include "Tests/sweeps/StoryTest.h"

namespace sweeps {

namespace {

class Stories : public StoryTest {};

// The sweeps prove something only if the undisturbed stories play as written.

TEST_P(Stories, PlaysAsWrittenWhenNothingFails) {
  const Trace trace = traceStory(GetParam());
  EXPECT_EQ(trace.unmet, std::vector<std::string>{});
  EXPECT_GT(trace.calls.size(), 20U);
  RecordProperty("calls", std::to_string(trace.calls.size()));
}

TEST_P(Stories, PlaysTheSameEveryTime) {
  const Trace first = traceStory(GetParam());
  const Trace second = traceStory(GetParam());
  EXPECT_EQ(first.journalHash, second.journalHash);
  EXPECT_EQ(first.calls.size(), second.calls.size());
}

TEST_P(Stories, BreaksNoRuleWhenNothingFails) {
  Sweep once(GetParam(), "*Stories.*");
  once.run({0, "none"}, [](Stage& stage, Findings&) { stage.play(); });
}

INSTANTIATE_TEST_SUITE_P(Undisturbed, Stories, testing::ValuesIn(stories()), storyName);

}  // namespace

}  // namespace sweeps
