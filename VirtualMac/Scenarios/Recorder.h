#pragma once

#include <string>
#include <vector>

#include "VirtualMac/Machine/SavedJournal.h"
#include "VirtualMac/Scenarios/RecordedDeeds.h"

namespace virtualmac {

/// A story made from a journal.
struct Recording {
  std::string story;  ///< As YAML.
  std::vector<Unsayable> unsayable;
};

/// Makes the story that does again what a journal tells, and expects what it tells of it. Played in
/// this process, it gives the journal again that a story in this process gave; one that came about
/// in real time it gives with the same effects, as late or early as real time makes them.
Recording record(const SavedJournal& journal);

}  // namespace virtualmac
