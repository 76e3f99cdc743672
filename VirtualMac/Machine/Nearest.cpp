#include "VirtualMac/Machine/Nearest.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace virtualmac {

namespace {

struct FormerWord {
  std::string_view former;
  std::string_view present;
};

/// Stories, and the sample client for a Mac, once had words of their own.
constexpr FormerWord formerWords[] = {
    {"cancel", "cancel-top-off"},
    {"clear", "clear-limit"},
    {"close", "closed"},
    {"heal", "fault"},
    {"in", "on"},
    {"limit", "set-limit"},
    {"out", "off"},
    {"renegotiates", "renegotiate"},
    {"signal", "kill"},
};

bool tookThePlaceOf(std::string_view former, std::string_view present) {
  return std::ranges::any_of(formerWords, [&](const FormerWord& each) {
    return each.former == former && each.present == present;
  });
}

/// Inserted, dropped and changed letters that lead from one word to the other.
std::size_t editDistance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  for (std::size_t i = 0; i < row.size(); ++i) row[i] = i;
  for (std::size_t i = 1; i <= left.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t changed = diagonal + (left[i - 1] == right[j - 1] ? 0U : 1U);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
    }
  }
  return row.back();
}

}  // namespace

std::string unknownWord(std::string_view what, std::string_view word,
                        const std::vector<std::string>& allowed) {
  const auto distance = [word](const std::string& each) {
    if (tookThePlaceOf(word, each)) return std::size_t{0};
    const bool begins = !word.empty() && each.starts_with(word);
    return begins ? std::size_t{1} : editDistance(word, each);
  };
  std::string text = std::string(what) + " \"" + std::string(word) + "\" is unknown";
  const auto nearest = std::ranges::min_element(allowed, {}, distance);
  if (nearest != allowed.end() && distance(*nearest) <= std::max<std::size_t>(2, word.size() / 3))
    text += ", did you mean \"" + *nearest + "\"?";
  text += " (allowed: ";
  for (const std::string& each : allowed) text += (&each == &allowed.front() ? "" : ", ") + each;
  return text + ')';
}

}  // namespace virtualmac
