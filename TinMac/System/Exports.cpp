#include "TinMac/System/Exports.h"

#include <vector>

#include "TinMac/System/ExportTables.h"

namespace tinmac {

std::span<const Export> systemExports() {
  static const std::vector<Export> all = [] {
    std::vector<Export> rows;
    for (const auto& topic :
         {cLibraryExports(), cxxRuntimeExports(), fileExports(), formatExports(), processExports(),
          dispatchExports(), osLogExports(), unfairLockExports()}) {
      rows.insert(rows.end(), topic.begin(), topic.end());
    }
    return rows;
  }();
  return all;
}

}  // namespace tinmac
