#pragma once

#include <optional>
#include <string>

namespace virtualmac {

/// A defect of a scenario's text, found before anything in it is read.
struct StoryDefect {
  int line = 0;
  std::string text;
};

/// None: it is YAML, nested no deeper than bounds::deepestStory, and without aliases. Those are
/// refused because a few lines of them stand for more than a machine can hold, and a reader would
/// have to look for what they mean; to tell something often there is `repeat`.
std::optional<StoryDefect> storyDefect(const std::string& text);

}  // namespace virtualmac
