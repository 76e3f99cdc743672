#include "VirtualMac/Tools/LogTable.h"

#include <algorithm>
#include <utility>

#include "VirtualMac/Tools/BuiltInDocuments.h"
#include "VirtualMac/Tools/DocumentTables.h"

namespace virtualmac {

namespace {

using Row = std::vector<std::string>;

/// The row's cell, or an empty one behind its end.
std::string cell(const Row& row, std::size_t index) {
  return index < row.size() ? row[index] : std::string();
}

std::string firstSpan(const std::string& text) {
  const std::vector<std::string> spans = codeSpans(text);
  return spans.empty() ? text : spans.front();
}

void addTexts(std::vector<LogMessage>& texts, const DocumentTable& table) {
  for (const Row& row : table.rows) {
    const std::string format = firstSpan(cell(row, 0));
    texts.push_back({"", "", format, cell(row, 1), cell(row, 2), LogPattern(format)});
  }
}

void addMessages(std::vector<LogMessage>& messages, const DocumentTable& table) {
  for (const Row& row : table.rows) {
    const std::string format = firstSpan(cell(row, 1));
    messages.push_back(
        {table.section, cell(row, 0), format, cell(row, 2), cell(row, 3), LogPattern(format)});
  }
}

LogCodes codesFrom(const DocumentTable& table) {
  LogCodes made{table.subsection, table.words, {}};
  for (const Row& row : table.rows) {
    made.codes.push_back({codeSpans(cell(row, 0)), cell(row, 1), cell(row, 2), cell(row, 3)});
  }
  return made;
}

}  // namespace

const LogCode* LogCodes::find(std::string_view number) const {
  const auto found = std::ranges::find_if(codes, [&](const LogCode& each) {
    return std::ranges::find(each.numbers, number) != each.numbers.end();
  });
  return found == codes.end() ? nullptr : &*found;
}

const LogCodes* LogTable::codesOf(const LogPattern::Value& number) const {
  if (!number.isNumber) return nullptr;
  const auto follows = [&](const std::string& mark) { return number.before.ends_with(mark); };
  const auto found = std::ranges::find_if(
      codes, [&](const LogCodes& each) { return std::ranges::any_of(each.marks, follows); });
  return found == codes.end() ? nullptr : &*found;
}

LogTable logTableFrom(std::string_view messagesDocument, std::string_view behaviourDocument) {
  LogTable made;
  for (const DocumentTable& table : tablesIn(messagesDocument)) {
    if (table.section == "Codes") {
      made.codes.push_back(codesFrom(table));
    } else if (table.section == "Texts within messages") {
      addTexts(made.texts, table);
    } else {
      addMessages(made.messages, table);
    }
  }
  for (const DocumentTable& table : tablesIn(behaviourDocument)) {
    if (table.subsection.starts_with("Stop reasons")) addTexts(made.texts, table);
  }
  return made;
}

const LogTable& logTable() {
  static const LogTable table = logTableFrom(documents::logMessages(), documents::behaviour());
  return table;
}

}  // namespace virtualmac
