#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

/// The action that an entry tells by itself: what a person or the hardware does, and faults. Empty:
/// it tells none.
std::string deedPhrase(const Journal::Entry& entry);

/// A line with which the helper logs who asked for what.
struct AuditLine {
  std::string_view method;
  std::string phrase;               ///< As a story says it, without the client.
  std::optional<std::int64_t> pid;  ///< None: the line does not tell it.
};
/// None: another line.
std::optional<AuditLine> auditLine(const Journal::Entry& entry);

/// A word as a phrase takes it: with quotes around it if it has one in it.
std::string quotedWord(std::string_view word);
/// A text in quotes, as `log` and `journal` take it.
std::string quotedText(std::string_view text);

/// The part of `text` between a beginning and an end; none: it has no such ones.
std::optional<std::string> between(std::string_view text, std::string_view begin,
                                   std::string_view end);

}  // namespace virtualmac
