#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace smallscope {

class Scope;

/// Something that may happen to the helper.
struct Stimulus {
  std::string_view name;
  void (*act)(Scope&);
  double seconds = 0.5;  ///< The time that passes before the next one.
};

/// Returns all stimuli, in a fixed order.
std::span<const Stimulus> stimuli();

/// Indices of stimuli, in the order in which they happen.
using Sequence = std::vector<std::size_t>;
inline constexpr std::size_t longestSequence = 3;

/// Returns how many sequences of up to this length there are.
std::uint64_t sequenceCount(std::size_t longest = longestSequence);
/// Returns a sequence by its number, from 0; the shorter ones come first.
Sequence sequenceOf(std::uint64_t number);

/// Returns the names, as in "limit,discharge,lid".
std::string textOf(const Sequence& sequence);
/// Reads such a text; throws std::invalid_argument for one that names no sequence.
Sequence sequenceFrom(std::string_view text);

}  // namespace smallscope
