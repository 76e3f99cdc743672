#pragma once

#include <cstdint>
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
  /// Called when a helper has ended: journals a replacement that it could not report any more. It
  /// always puts a new file in the place of the old one; a change in the same file is another's.
  void look();
  /// Called when a helper starts, because it reads the file then: journals a change that none made,
  /// as `disk  state.json changed by another program`.
  void lookForOthers();
  /// Takes the file as it is for one that was there from the beginning.
  void takeAsFound() { known = stateFile(); }

 private:
  /// The file at one moment.
  struct State {
    FileCopy copy;
    std::uint64_t node = 0;  ///< The file system's number of it.
  };
  void tell(const std::optional<State>& now);
  void tellOthers(const std::optional<State>& now);
  [[nodiscard]] bool isKnown(const std::optional<State>& now) const;
  [[nodiscard]] std::optional<State> stateFile() const;

  Journal& journal;
  std::string root;
  std::optional<State> known;
};

}  // namespace virtualmac
