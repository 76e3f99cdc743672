#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

/// A table of a document, with the place where it stands.
struct DocumentTable {
  std::string section;             ///< The heading of the second level above it.
  std::string subsection;          ///< That of the third level; empty: none.
  std::vector<std::string> words;  ///< The code spans between that heading and the table.
  std::vector<std::vector<std::string>> rows;  ///< Cells as they are written, without the head.
};

/// Every table of a document in Markdown.
std::vector<DocumentTable> tablesIn(std::string_view document);

/// The code spans of a text, with the spaces and the longer fences that Markdown strips.
std::vector<std::string> codeSpans(std::string_view text);

}  // namespace virtualmac
