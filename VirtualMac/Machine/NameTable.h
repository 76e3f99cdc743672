#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace virtualmac {

/// The names by which one process knows objects of one sort. A name is never 0, and returns only
/// after sixteen million others. Its low byte tells the sort, so that no other table finds it. Few
/// names live at once, so a flat list beats a map.
template <class Object>
class NameTable {
 public:
  explicit NameTable(std::uint8_t sortByte) : sort(sortByte) {}

  std::uint32_t insert(Object object) {
    const std::uint32_t name = (++handedOut << 8U) | sort;
    live.emplace_back(name, std::move(object));
    return name;
  }
  /// Null: no such name.
  [[nodiscard]] Object* find(std::uint64_t name) {
    const auto found = locate(name);
    return found == live.end() ? nullptr : &found->second;
  }
  /// False: no such name.
  bool erase(std::uint64_t name) {
    const auto found = locate(name);
    if (found == live.end()) return false;
    live.erase(found);
    return true;
  }
  [[nodiscard]] std::size_t size() const { return live.size(); }
  void clear() { live.clear(); }

 private:
  auto locate(std::uint64_t name) {
    return std::find_if(live.begin(), live.end(),
                        [name](const auto& entry) { return entry.first == name; });
  }

  std::uint32_t sort;
  std::uint32_t handedOut = 0;
  std::vector<std::pair<std::uint32_t, Object>> live;
};

}  // namespace virtualmac
