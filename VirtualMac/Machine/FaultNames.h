#pragma once

#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

class Machine;

/// One fault of the machine that can be switched by name.
struct FaultDescription {
  std::string_view name;       ///< "smc-result"
  std::string_view arguments;  ///< "KEY CODE"; empty: takes none.
  std::string_view text;       ///< One sentence: what it does.
};

/// Every fault, sorted by name.
std::span<const FaultDescription> faultCatalogue();

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
