#pragma once

#include <optional>
#include <string>

namespace virtualmac {

/// A defect of a scenario's text, found before anything in it is read.
struct StoryDefect {
  int line = 0;
  std::string text;
};

/// None: the text is YAML, nested no deeper than bounds::deepestStory, and without aliases. Aliases
/// are refused because a few lines of them can expand beyond any memory and are hard to follow;
/// `repeat` serves for steps that recur.
std::optional<StoryDefect> storyDefect(const std::string& text);

}  // namespace virtualmac
