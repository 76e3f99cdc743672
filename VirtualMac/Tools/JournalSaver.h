#pragma once

#include <memory>
#include <optional>
#include <string>

#include "VirtualMac/Scenarios/Scenario.h"
#include "VirtualMac/Scenarios/Stage.h"

namespace virtualmac {

/// Writes what happens on a stage into a file, as a machine's own journal is written: a head, then
/// a line an effect. Made before the story is played, and let go before the stage, whose end is no
/// part of the story.
class JournalSaver {
 public:
  /// An empty file name: nothing is written.
  JournalSaver(const std::string& file, Stage& stage, const Scenario& scenario,
               std::optional<double> speed);
  /// Ends it, at this virtual second. False: some of it could not be written.
  bool finish(double seconds);

 private:
  struct Output;
  /// Shared with the journal's listener, which stays.
  std::shared_ptr<Output> output;
};

}  // namespace virtualmac
