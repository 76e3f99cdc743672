#include "VirtualMac/Schedule/Journal.h"

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "Tests/fuzz/Target.h"
#include "VirtualMac/Machine/SavedJournal.h"

namespace korvel::fuzz {

namespace {

using virtualmac::SavedJournal;

constexpr const char* file = "input.journal";

std::string written(const SavedJournal& journal) {
  std::string text;
  if (journal.head) text += journal.head->line() + '\n';
  for (const auto& entry : journal.entries) text += journalLine(entry) + '\n';
  if (journal.end) text += SavedJournal::endLine(*journal.end) + '\n';
  return text;
}

/// Cuts one line of a journal at its spaces, and expects the reader to have done the same.
void judgeLine(const std::string& line, const virtualmac::Journal::Entry& entry) {
  std::string whole = line;
  if (whole.ends_with('\r')) whole.pop_back();
  const std::size_t time = whole.find(' ');
  const std::size_t kind = whole.find(' ', time + 1);
  std::size_t text = kind + 1;
  while (text < whole.size() && text < time + 7 && whole[text] == ' ') ++text;
  require(entry.kind == whole.substr(time + 1, kind - time - 1), "another kind: " + line);
  require(entry.text == whole.substr(text), "another text: " + line + " | " + entry.text);
  const std::string shortest = whole.substr(std::min(whole.find_first_not_of('0'), time));
  const std::string told =
      (shortest.starts_with('.') ? "0" : "") + shortest.substr(0, shortest.find(' '));
  require(virtualmac::journalTime(entry.time) == told, "another time: " + line);
}

/// Equal without the library's bending: it takes the largest number without a sign for -1.
bool same(const nlohmann::json& left, const nlohmann::json& right) {
  const bool reals =
      left.is_number() && right.is_number() && (left.is_number_float() || right.is_number_float());
  return reals ? left == right : left.dump() == right.dump();
}

/// The head says what stands in its line, as far as it has a field for it.
void judgeHead(std::string_view input, const virtualmac::JournalHead& head) {
  const std::string line(input.substr(0, input.find('\n')));
  const auto first = virtualmac::JournalHead::from(line.substr(0, line.find('\r')));
  if (!first || first->line() != head.line()) return;  // It is not on the first line.
  const auto given = nlohmann::json::parse(line.substr(2));
  const auto told = nlohmann::json::parse(head.line().substr(2));
  for (const auto& [key, value] : told["start"].items())
    require(same(given["start"].value(key, nlohmann::json()), value), "another value of " + key);
  for (const char* key : {"speed", "seed", "profile", "clock"})
    require(given.contains(key) == told.contains(key) &&
                (!told.contains(key) || same(told[key], given[key])),
            std::string("another value of ") + key);
}

}  // namespace

/// The input is a saved journal.
void journal(std::string_view input) {
  std::istringstream stream{std::string(input)};
  const auto read = SavedJournal::from(stream, file);
  if (!read) return require(read.error().starts_with(file), "a refusal does not name the file");
  if (read->head) judgeHead(input, *read->head);
  require(read->lines.size() == read->entries.size(), "an entry has no line");
  std::istringstream again{std::string(input)};
  std::string line;
  std::size_t next = 0;
  for (std::size_t number = 1; next < read->lines.size() && std::getline(again, line); ++number) {
    if (number == read->lines[next]) judgeLine(line, read->entries[next++]);
  }
  require(next == read->entries.size(), "an entry is on no line of the file");
  const std::string text = written(*read);
  std::istringstream second(text);
  const auto reread = SavedJournal::from(second, file);
  require(reread.has_value(), "its own text is refused");
  require(written(*reread) == text, "it does not come back from its text");
  require(reread->head.has_value() == read->head.has_value() &&
              (!read->head || reread->head->start == read->head->start),
          "its head does not come back");
}

}  // namespace korvel::fuzz
