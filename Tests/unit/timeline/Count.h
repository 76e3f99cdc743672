#pragma once

#include <cstddef>
#include <string>

namespace virtualmac {

/// How often the text has the word.
inline std::size_t count(const std::string& text, const std::string& word) {
  std::size_t found = 0;
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    ++found;
  }
  return found;
}

}  // namespace virtualmac
