#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VirtualMac/Machine/Disk.h"
#include "VirtualMac/Schedule/Journal.h"

namespace virtualmac {

/// Journals the changes of the helper's state file, which lies on a real disk. It outlives the
/// helpers, since each finds the file of the one before.
class DiskWatch {
 public:
  /// `rootDirectory` stands for the machine's root directory.
  DiskWatch(Journal& effects, std::string rootDirectory);

  /// A helper says that it replaced the file at `path`.
  void replaced(std::string_view path);
  /// Called when a helper has ended: journals a replacement that it could not report any more.
  void look();
  /// Called when a helper starts, because it reads the file then: journals a change that none made,
  /// as `disk  state.json changed by another program`.
  void lookForOthers();
  /// Takes the file as it is for one that was there from the beginning.
  void takeAsFound() { known = stateFile(); }

 private:
  void tell(const std::optional<FileCopy>& now);
  [[nodiscard]] std::optional<FileCopy> stateFile() const;

  Journal& journal;
  std::string root;
  std::optional<FileCopy> known;
};

}  // namespace virtualmac
