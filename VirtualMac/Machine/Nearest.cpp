#include "VirtualMac/Machine/Nearest.h"

#include <algorithm>
#include <cstddef>

#include "VirtualMac/Machine/EditDistance.h"

namespace virtualmac {

std::string unknownWord(std::string_view what, std::string_view word,
                        const std::vector<std::string>& allowed) {
  std::string text = std::string(what) + " \"" + std::string(word) + "\" is unknown";
  const auto nearest = std::min_element(
      allowed.begin(), allowed.end(), [word](const std::string& left, const std::string& right) {
        return editDistance(word, left) < editDistance(word, right);
      });
  if (nearest != allowed.end() &&
      editDistance(word, *nearest) <= std::max<std::size_t>(2, word.size() / 3))
    text += ", did you mean \"" + *nearest + "\"?";
  text += " (allowed: ";
  for (const std::string& each : allowed) text += (&each == &allowed.front() ? "" : ", ") + each;
  return text + ')';
}

}  // namespace virtualmac
