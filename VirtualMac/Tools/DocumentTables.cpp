#include "VirtualMac/Tools/DocumentTables.h"

#include <algorithm>
#include <utility>

namespace virtualmac {

namespace {

std::string_view trimmed(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

/// The line at the front, which is taken away.
std::string_view takeLine(std::string_view& document) {
  const std::size_t end = std::min(document.find('\n'), document.size());
  const std::string_view line = document.substr(0, end);
  document.remove_prefix(std::min(end + 1, document.size()));
  return line;
}

std::vector<std::string> cellsOf(std::string_view row) {
  constexpr std::string_view border = " | ";
  row = trimmed(row);
  row.remove_prefix(std::min(row.size(), border.size() - 1));
  if (row.ends_with('|')) row.remove_suffix(1);
  std::vector<std::string> cells;
  for (;;) {
    const std::size_t end = std::min(row.find(border), row.size());
    cells.emplace_back(trimmed(row.substr(0, end)));
    if (end == row.size()) return cells;
    row.remove_prefix(end + border.size());
  }
}

}  // namespace

std::vector<std::string> codeSpans(std::string_view text) {
  std::vector<std::string> spans;
  for (;;) {
    const std::size_t open = text.find('`');
    if (open == std::string_view::npos) return spans;
    text.remove_prefix(open);
    const std::string_view fence =
        text.substr(0, std::min(text.find_first_not_of('`'), text.size()));
    text.remove_prefix(fence.size());
    const std::size_t end = text.find(fence);
    if (end == std::string_view::npos) return spans;
    std::string_view span = text.substr(0, end);
    if (span.starts_with(' ') && span.ends_with(' ') && span.size() > 2)
      span = span.substr(1, span.size() - 2);
    spans.emplace_back(span);
    text.remove_prefix(end + fence.size());
  }
}

std::vector<DocumentTable> tablesIn(std::string_view document) {
  std::vector<DocumentTable> tables;
  std::string section;
  std::string subsection;
  std::vector<std::string> words;
  bool inside = false;
  while (!document.empty()) {
    const std::string_view line = takeLine(document);
    if (!line.starts_with('|')) {
      inside = false;
      const bool isSection = line.starts_with("## ");
      if (isSection) section = line.substr(3);
      if (isSection || line.starts_with("### ")) {
        subsection = isSection ? "" : line.substr(4);
        words.clear();
      }
      for (std::string& span : codeSpans(line)) words.push_back(std::move(span));
    } else if (!inside) {
      inside = true;
      takeLine(document);  // The rule below the head.
      tables.push_back({section, subsection, words, {}});
    } else {
      tables.back().rows.push_back(cellsOf(line));
    }
  }
  return tables;
}

}  // namespace virtualmac
