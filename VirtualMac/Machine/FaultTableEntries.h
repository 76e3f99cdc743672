#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "VirtualMac/Machine/FaultNames.h"

namespace virtualmac {

/// The words after a fault's name. Reading a wrong one leaves a complaint; its value must not be
/// used.
class FaultArguments {
 public:
  static constexpr std::size_t anyNumber = SIZE_MAX;

  explicit FaultArguments(std::span<const std::string> given) : words(given) {}

  [[nodiscard]] std::size_t count() const { return words.size(); }
  [[nodiscard]] const std::string& text(std::size_t index) const { return words[index]; }
  /// The words from here on, with single spaces.
  [[nodiscard]] std::string rest(std::size_t index) const;
  /// Decimal or 0x…, within the bounds.
  std::int64_t integer(std::size_t index, std::int64_t low, std::int64_t high);
  /// A kernel code: signed decimal or 0x…; `otherwise` when the word is not there.
  std::int32_t code(std::size_t index, std::int32_t otherwise);
  double real(std::size_t index, double low, double high);

  std::optional<std::string> complaint;

 private:
  std::span<const std::string> words;
};

/// One fault and the function that switches it.
struct FaultEntry {
  FaultDescription description;
  std::size_t needed = 0;     ///< Arguments needed to switch it on.
  std::size_t accepted = 0;   ///< The most that it takes.
  std::size_t selectors = 0;  ///< Leading arguments, such as a key, that switching off needs too.
  void (*apply)(Machine& machine, FaultArguments& arguments, bool on) = nullptr;
  bool momentary = false;  ///< Happens once; there is nothing to switch off.
  /// Faults with the same target replace each other. Empty: none.
  std::string_view target = {};
};

std::span<const FaultEntry> faultEntries();

}  // namespace virtualmac
