#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

class Machine;

/// The words after a fault's name. Reading a wrong one leaves a complaint; its value must not be
/// used.
class FaultArguments {
 public:
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

/// One fault of the machine that can be switched by name.
struct Fault {
  std::string_view name;       ///< "smc-result"
  std::string_view arguments;  ///< "KEY CODE"; [in brackets]: may be left out; ...: any number.
  std::string_view text;       ///< One sentence: what it does.
  void (*apply)(Machine& machine, FaultArguments& arguments, bool on);
  std::string_view target = {};  ///< Faults with the same target replace each other. Empty: none.
  bool momentary = false;        ///< Happens once; there is nothing to switch off.

  /// How many arguments switching it on needs, and takes at most.
  [[nodiscard]] std::size_t needed() const;
  [[nodiscard]] std::size_t accepted() const;
  /// How many leading arguments say which (a key), and are needed to switch it off too.
  [[nodiscard]] std::size_t selectors() const;
};

/// Every fault, sorted by name.
std::span<const Fault> faultCatalogue();

/// Switches a fault. `arguments` are needed to switch it on; to switch it off, those that say which
/// (a key) are. To switch off what is not on changes nothing, and is no error. Of the faults that
/// change the same thing (a state that is not stated, or mistyped) the last one counts: it takes
/// the place of the others, also in the list. What was switched is journalled: `mac   fault
/// smc-result CHTE 134 on`, `mac   fault smc-result CHTE off`. The error is one line: an unknown
/// name comes with the nearest one, a wrong argument with what is expected.
std::expected<void, std::string> setFault(Machine& machine, std::string_view name,
                                          std::span<const std::string> arguments, bool on);

/// The same from one line, `smc-result CHTE 134`.
std::expected<void, std::string> setFault(Machine& machine, std::string_view line, bool on);

/// The first defect that `smc-result CHTE 134 on`, cut into words, has on every machine: no such
/// fault, or neither on nor off.
std::optional<std::string> faultDefect(std::span<const std::string> words);

/// Switches a fault by such words: those of the command line and of a story.
std::expected<void, std::string> switchFault(Machine& machine, std::span<const std::string> words);

/// The faults that are on, as lines in the order in which they were switched on.
std::vector<std::string> activeFaults(const Machine& machine);

}  // namespace virtualmac
