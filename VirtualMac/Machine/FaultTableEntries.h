#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "VirtualMac/Machine/FaultNames.h"

namespace virtualmac {

/// The words after a fault's name. Reading one that is not what it should be leaves a complaint,
/// and the reader's result is then not to be used.
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

/// One fault and what switching it does.
struct FaultEntry {
  FaultDescription description;
  std::size_t needed = 0;     ///< Arguments needed to switch it on.
  std::size_t accepted = 0;   ///< Most that it takes.
  std::size_t selectors = 0;  ///< Leading arguments that say which; needed to switch it off too.
  void (*apply)(Machine& machine, FaultArguments& arguments, bool on) = nullptr;
  bool momentary = false;  ///< Happens once; there is nothing to switch off.
  /// What faults that cannot be on together change; empty: this fault alone does.
  std::string_view target = {};
};

std::span<const FaultEntry> faultEntries();

}  // namespace virtualmac
