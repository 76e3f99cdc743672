#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "VirtualMac/Machine/MachineContext.h"

namespace virtualmac {

enum class FileKind : std::uint8_t { Plain, Directory, Symlink, Fifo };

/// A file, directory, symbolic link or FIFO.
struct DiskNode {
  using Entries = std::map<std::string, std::shared_ptr<DiskNode>, std::less<>>;
  /// The names that one operation added or, as null, removed.
  struct Change {
    Entries names;
    Nanoseconds madeAt = 0;
  };

  FileKind kind = FileKind::Plain;
  std::uint32_t mode = 0644;
  std::string content = {};  ///< A file's bytes, or a link's target.
  std::size_t durableBytes = 0;
  Nanoseconds writtenAt = 0;
  Entries entries = {};
  Entries durableEntries = {};
  std::vector<Change> pending = {};  ///< From the durable entries to the present ones, in order.
};

}  // namespace virtualmac
