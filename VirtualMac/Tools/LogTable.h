#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Tools/LogPattern.h"

namespace virtualmac {

/// A message of the helper's log, or a text that stands within one.
struct LogMessage {
  std::string category;  ///< Empty: it stands within others.
  std::string level;     ///< As above.
  std::string format;
  std::string meaning;
  std::string remedy;  ///< Empty: none is told.
  LogPattern pattern;
};

struct LogCode {
  std::vector<std::string> numbers;  ///< More than one where systems differ.
  std::string name;
  std::string meaning;
  std::string remedy;
};

/// The codes of one authority.
struct LogCodes {
  std::string title;
  std::vector<std::string> marks;  ///< A number after one of these words is such a code.
  std::vector<LogCode> codes;

  [[nodiscard]] const LogCode* find(std::string_view number) const;
};

/// Everything that docs/log-messages.md explains, and the reasons of docs/behaviour.md for which a
/// discharge stops. The documents are compiled in: there is no second text.
struct LogTable {
  std::vector<LogMessage> messages;
  std::vector<LogMessage> texts;  ///< Those that stand within messages.
  std::vector<LogCodes> codes;

  /// The codes that a number belongs to; null: it is no code.
  [[nodiscard]] const LogCodes* codesOf(const LogPattern::Value& number) const;
};

LogTable logTableFrom(std::string_view messagesDocument, std::string_view behaviourDocument);

const LogTable& logTable();

}  // namespace virtualmac
