#include "VirtualMac/Tools/Nearest.h"

#include <algorithm>
#include <cstddef>

namespace virtualmac {

namespace {

/// Inserted, dropped and changed letters that lead from one word to the other.
std::size_t edits(std::string_view from, std::string_view to) {
  if (from.empty()) return to.size();
  if (to.empty()) return from.size();
  std::vector<std::size_t> above(to.size() + 1);
  std::vector<std::size_t> row(to.size() + 1);
  for (std::size_t column = 0; column <= to.size(); ++column) above[column] = column;
  for (std::size_t line = 1; line <= from.size(); ++line) {
    row[0] = line;
    for (std::size_t column = 1; column <= to.size(); ++column) {
      const std::size_t changed = above[column - 1] + (from[line - 1] == to[column - 1] ? 0U : 1U);
      row[column] = std::min({changed, above[column] + 1, row[column - 1] + 1});
    }
    std::swap(above, row);
  }
  return above[to.size()];
}

}  // namespace

std::string unknownWord(std::string_view what, std::string_view word,
                        const std::vector<std::string>& allowed) {
  std::string text = std::string(what) + " \"" + std::string(word) + "\" is unknown";
  const auto nearest = std::min_element(allowed.begin(), allowed.end(),
                                        [word](const std::string& left, const std::string& right) {
                                          return edits(word, left) < edits(word, right);
                                        });
  if (nearest != allowed.end() &&
      edits(word, *nearest) <= std::max<std::size_t>(2, word.size() / 3))
    text += ", did you mean \"" + *nearest + "\"?";
  text += " (allowed: ";
  for (const std::string& each : allowed) text += (&each == &allowed.front() ? "" : ", ") + each;
  return text + ')';
}

}  // namespace virtualmac
