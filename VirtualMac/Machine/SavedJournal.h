#pragma once

#include <cstddef>
#include <expected>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Machine/JournalHead.h"
#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

/// A journal's file as a whole. Lines that are neither its head nor an effect are skipped.
struct SavedJournal {
  std::string file;
  std::optional<JournalHead> head;  ///< None: an older file, or a part of one.
  std::vector<Journal::Entry> entries;
  std::vector<std::size_t> lines;  ///< The line of each entry in the file, from 1.
  std::optional<double> end;       ///< When a story was over; none: nobody tells it.

  /// The line that ends the file of a story's run: `# ended at 480.000`.
  static std::string endLine(double seconds);
  /// The error names the file: it cannot be read, or tells nothing.
  static std::expected<SavedJournal, std::string> read(const std::string& file);
  /// The same from text; `file` stands in the errors.
  static std::expected<SavedJournal, std::string> from(std::istream& text, const std::string& file);
};

}  // namespace virtualmac
