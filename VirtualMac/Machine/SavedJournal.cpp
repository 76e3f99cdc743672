#include "VirtualMac/Machine/SavedJournal.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <utility>

namespace virtualmac {

namespace {

constexpr std::string_view endWords = "# ended at ";

}  // namespace

std::string SavedJournal::endLine(double seconds) {
  return std::string(endWords) + journalTime(seconds);
}

std::expected<SavedJournal, std::string> SavedJournal::from(std::istream& text,
                                                            const std::string& file) {
  SavedJournal journal;
  journal.file = file;
  std::string line;
  for (std::size_t number = 1; std::getline(text, line); ++number) {
    if (line.ends_with('\r')) line.pop_back();
    if (std::optional<Journal::Entry> entry = journalEntryFrom(line)) {
      journal.entries.push_back(*std::move(entry));
      journal.lines.push_back(number);
    } else if (line.starts_with(endWords)) {
      // It is read as an entry's time is.
      const auto told = journalEntryFrom(line.substr(endWords.size()) + " mac end");
      if (told) journal.end = told->time;
    } else if (!journal.head && journal.entries.empty()) {
      journal.head = JournalHead::from(line);
    }
  }
  if (text.bad()) return std::unexpected(file + ": cannot be read to its end");
  if (journal.entries.empty()) return std::unexpected(file + ": holds no line of a journal");
  return journal;
}

std::expected<SavedJournal, std::string> SavedJournal::read(const std::string& file) {
  std::error_code error;
  if (std::filesystem::is_directory(file, error)) {
    return std::unexpected(file + ": cannot be read: it is a directory");
  }
  std::ifstream text(file, std::ios::binary);
  if (!text)
    return std::unexpected(file + ": cannot be read: " + std::generic_category().message(errno));
  return from(text, file);
}

}  // namespace virtualmac
