#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// Chooses the lines of the journal to print, and when to stop.
struct JournalQuery {
  std::vector<std::string> kinds;  ///< Empty: all.
  std::string category;            ///< Of log lines; empty: all.
  std::string level;               ///< Of log lines; empty: all.
  bool follow = false;
  bool onlyNew = false;                  ///< Leaves out what is already there.
  std::string until;                     ///< Stops after a line that contains this; empty: never.
  std::optional<double> timeoutSeconds;  ///< Real seconds to follow.
  bool asJSON = false;
  std::string file;  ///< A saved journal, which cannot be followed; empty: the machine's own.
};

/// Prints a line of the journal, toned by what it tells, or with `asJSON` as an object.
void printEntry(const Journal::Entry& entry, bool asJSON);

/// Prints the wanted lines, skipping any that is no journal line. Returns an exit code: 1 when
/// `until` was not met, or nothing can be read.
int printJournal(const RootDirectory& root, const JournalQuery& query);

}  // namespace virtualmac
