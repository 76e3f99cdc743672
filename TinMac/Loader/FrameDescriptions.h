#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "TinMac/Loader/Bytes.h"

namespace tinmac {

/// The functions of a description share this: rules that hold at once, and who handles exceptions.
struct CommonRules {
  std::uint64_t codeFactor = 1;
  std::int64_t dataFactor = -8;
  std::optional<std::uint64_t> personality;
  std::vector<std::byte> instructions;

  auto operator<=>(const CommonRules&) const = default;
};

/// How to unwind the code of an address range. Addresses are of this process.
struct FrameRules {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  CommonRules common;
  std::uint64_t languageData = 0;
  /// The rules that change within the range.
  std::vector<std::byte> instructions;
};

/// Collects rules in the form of an .eh_frame section, which this process's unwinder reads.
class FrameDescriptions {
 public:
  void add(const FrameRules& rules);
  /// The section with its end mark.
  [[nodiscard]] std::vector<std::byte> finish() &&;

 private:
  std::uint64_t commonRecord(const CommonRules& common);
  void close(std::uint64_t record);

  std::vector<std::byte> bytes;
  std::map<CommonRules, std::uint64_t> commons;
};

void appendByte(std::vector<std::byte>& bytes, std::uint64_t value);
void appendUleb(std::vector<std::byte>& bytes, std::uint64_t value);

}  // namespace tinmac
