#pragma once

#include <expected>
#include <optional>
#include <string>

namespace virtualmac {

/// Where a virtual machine lives: one directory that holds its disk, its sockets and its records.
/// It outlives the machine; the next one started there finds the disk as it was left. It is open to
/// its owner only: a socket in it makes whoever connects the Mac's user.
struct RootDirectory {
  std::string path;        ///< Absolute, without a slash at the end.
  bool isDefault = false;  ///< Nobody named it. Everybody knows its place, and may be there first.

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

  /// Why a default root that is there is not to be used: a link, another user's, or open to others.
  /// None: it may be used, or is not there. A root that somebody named is never distrusted.
  [[nodiscard]] std::optional<std::string> distrust() const;

  /// Makes the directory, or sees to it that one that is there is this user's alone: a default one
  /// is refused where `distrust` says so, a named one is closed to others. Text: what was changed;
  /// empty: nothing. The error names the directory.
  [[nodiscard]] std::expected<std::string, std::string> make() const;
};

}  // namespace virtualmac
