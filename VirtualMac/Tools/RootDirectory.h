#pragma once

#include <string>

namespace virtualmac {

/// Where a virtual machine lives: one directory that holds its disk, its sockets and its records.
/// It outlives the machine; the next one started there finds the disk as it was left.
struct RootDirectory {
  std::string path;  ///< Absolute, without a slash at the end.

  [[nodiscard]] std::string control() const { return path + "/control.sock"; }
  [[nodiscard]] std::string service() const { return path + "/com.korvel.app.helper.sock"; }
  [[nodiscard]] std::string disk() const { return path + "/disk"; }
  [[nodiscard]] std::string applicationSupport() const {
    return disk() + "/Library/Application Support";
  }
  [[nodiscard]] std::string journal() const { return path + "/journal"; }
  [[nodiscard]] std::string helperErrors() const { return path + "/helper.stderr"; }
  [[nodiscard]] std::string machineErrors() const { return path + "/virtual-mac.stderr"; }

  /// `given`, or the default below $XDG_RUNTIME_DIR or /tmp.
  static RootDirectory at(const std::string& given);
};

}  // namespace virtualmac
