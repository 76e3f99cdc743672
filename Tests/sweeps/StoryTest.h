#pragma once

#include <gtest/gtest.h>

#include <string>

#include "Tests/sweeps/Stage.h"
#include "Tests/sweeps/Sweep.h"

namespace sweeps {

/// A test that runs for every story, under the story's name.
class StoryTest : public testing::TestWithParam<Story> {
 protected:
  void SetUp() override {
    if (selection().story && *selection().story != GetParam().name) {
      GTEST_SKIP() << "KORVEL_STORY asks for another story";
    }
  }
};

inline std::string storyName(const testing::TestParamInfo<Story>& info) { return info.param.name; }

/// Prints the name in test reports.
inline void PrintTo(const Story& story, std::ostream* out) { *out << story.name; }

}  // namespace sweeps
