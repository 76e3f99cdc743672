#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "VirtualMac/Machine/SavedJournal.h"

namespace virtualmac {

/// An action of a story that a journal tells.
struct RecordedDeed {
  double time = 0;
  std::size_t index = 0;  ///< Of the entry that tells it.
  std::string phrase;     ///< As a story says it.
  std::string reply;      ///< Of a request: `ok`, `failed 400 "…"`, `lost`, `none`; else empty.
};

/// Something that a journal tells and no story can.
struct Unsayable {
  double time = 0;
  std::size_t line = 0;  ///< In the journal's file.
  std::string text;
};

/// The actions that a journal tells, of whoever did them, in their order. Whatever else it tells
/// followed from these.
struct RecordedDeeds {
  std::vector<RecordedDeed> deeds;
  std::vector<Unsayable> unsayable;
  /// Of each entry: an action stands for it, or nothing does. It is no effect then.
  std::vector<bool> isTold;
  std::size_t end = 0;  ///< How many entries come before the machine was told to go down.
};

RecordedDeeds deedsIn(const SavedJournal& journal);

}  // namespace virtualmac
