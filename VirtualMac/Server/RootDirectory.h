#pragma once

#include <expected>
#include <optional>
#include <string>

namespace virtualmac {

/// The directory of a virtual machine, which holds its disk, its sockets and its records. It
/// outlives the machine; the next one started there finds the disk as it was left. It is open to
/// its owner only, because any program that connects to a socket in it acts as the Mac's user.
struct RootDirectory {
  std::string path;          ///< Absolute, without a slash at the end.
  bool isDefault = false;    ///< Nobody named it. Others know its path, and may take it first.
  bool isVariables = false;  ///< VIRTUAL_MAC_ROOT names it.

  [[nodiscard]] std::string control() const { return path + "/control.sock"; }
  [[nodiscard]] std::string service() const { return path + "/com.korvel.app.helper.sock"; }
  [[nodiscard]] std::string disk() const { return path + "/disk"; }
  [[nodiscard]] std::string applicationSupport() const {
    return disk() + "/Library/Application Support";
  }
  [[nodiscard]] std::string journal() const { return path + "/journal"; }
  /// Holds the journals of earlier runs.
  [[nodiscard]] std::string journals() const { return path + "/journals"; }
  [[nodiscard]] std::string helperErrors() const { return path + "/helper.stderr"; }
  [[nodiscard]] std::string machineErrors() const { return path + "/virtual-mac.stderr"; }

  /// Ends a text that tells of this directory's fault: the variable that names it; else empty.
  [[nodiscard]] std::string origin() const { return isVariables ? " (VIRTUAL_MAC_ROOT)" : ""; }

  /// `given`, or else what VIRTUAL_MAC_ROOT names, or else the default below $XDG_RUNTIME_DIR or
  /// /tmp. A variable that is empty counts as not set.
  static RootDirectory at(const std::string& given);

  /// Why an existing default root must not be used: it is a link, belongs to another user or is
  /// open to others. None: it may be used, or does not exist. A named root is never distrusted.
  [[nodiscard]] std::optional<std::string> distrust() const;

  /// Makes the directory, or makes sure that an existing one is open to this user only: a default
  /// one is refused if `distrust` gives a reason, a named one is closed to others. Returns what was
  /// changed; empty: nothing. The error names the directory.
  [[nodiscard]] std::expected<std::string, std::string> make() const;
};

}  // namespace virtualmac
