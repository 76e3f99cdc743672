#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

/// `lid "opne" is unknown, did you mean "open"? (allowed: open, closed)`: what to say of a word
/// that is none of the allowed ones, with the nearest of them when one is near.
std::string unknownWord(std::string_view what, std::string_view word,
                        const std::vector<std::string>& allowed);

}  // namespace virtualmac
