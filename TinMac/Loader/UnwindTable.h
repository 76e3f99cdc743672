#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "TinMac/Loader/Bytes.h"

namespace tinmac {

/// How an arm64 function's frame lies on the stack, in the 32 bits of the compact form.
struct UnwindEncoding {
  enum class Mode { None, Frameless, Dwarf, Frame };

  std::uint32_t raw = 0;

  /// Throws Refused for a mode or a bit that has no meaning here.
  [[nodiscard]] Mode mode() const;
  /// Bytes below the caller's frame; frameless only.
  [[nodiscard]] std::uint64_t stackSize() const { return ((raw >> 12) & 0xfff) * 16; }
  /// Where the function's description is in the image's DWARF section; DWARF only.
  [[nodiscard]] std::uint64_t dwarfOffset() const { return raw & 0xffffff; }
  [[nodiscard]] bool hasLanguageData() const { return (raw & 0x40000000) != 0; }
  /// From one; zero: none.
  [[nodiscard]] unsigned personality() const { return (raw >> 28) & 3; }
  /// Whether pair `index` is saved: 0 to 4 are x19 to x28, 8 to 11 are d8 to d15.
  [[nodiscard]] bool savesPair(unsigned index) const { return ((raw >> index) & 1) != 0; }
};

/// Functions, side by side, that unwind alike; offsets from the image's header.
struct UnwoundRange {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  UnwindEncoding encoding;
  /// Where the personality's address is; none: the functions catch and clean nothing.
  std::optional<std::uint64_t> personalitySlot;
  std::optional<std::uint64_t> languageData;
};

/// Reads the compact unwind table, in the order of addresses. Ranges without any description are
/// left out. Throws Refused for what it does not know.
std::vector<UnwoundRange> readUnwindTable(const Bytes& table);

}  // namespace tinmac
