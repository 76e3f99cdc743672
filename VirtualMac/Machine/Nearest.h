#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

/// Says of a word that it is none of the allowed ones, with the nearest of them when one is near:
/// `lid "opne" is unknown, did you mean "open"? (allowed: open, closed)`. A word that was once said
/// in the place of an allowed one is near to that one, and so is one that it begins with.
std::string unknownWord(std::string_view what, std::string_view word,
                        const std::vector<std::string>& allowed);

template <class Words>
std::string unknownWord(std::string_view what, std::string_view word, const Words& allowed) {
  return unknownWord(what, word, std::vector<std::string>(allowed.begin(), allowed.end()));
}

}  // namespace virtualmac
