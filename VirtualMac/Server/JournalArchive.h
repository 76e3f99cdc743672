#pragma once

#include <expected>
#include <string>

#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// So many journals of earlier runs are kept in a root directory.
inline constexpr int keptJournals = 10;

/// Puts the journal of the run before away as the newest of `journals/0001.journal`, …, whose
/// numbers go on rising, and removes those beyond keptJournals. One that tells nothing is left to
/// be overwritten, so that runs which could not begin push out none that could. A rename does it:
/// at any moment the journal is whole, in one of the two places. The error names the file.
std::expected<void, std::string> keepJournal(const RootDirectory& root);

}  // namespace virtualmac
