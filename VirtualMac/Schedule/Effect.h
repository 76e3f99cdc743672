#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace virtualmac {

/// One thing that happened, of those that somebody else than a reader of the journal acts on; all
/// others are `told`.
enum class EffectID : std::uint8_t {
#define EFFECT(id, kind, pattern) id,
#include "VirtualMac/Schedule/Effects.def"
#undef EFFECT
  told
};

/// A record's fields that changed, with their new values; none: the field is gone.
using EffectFields = std::vector<std::pair<std::string, std::optional<std::string>>>;
using EffectValue = std::variant<std::int64_t, std::string, EffectFields>;

/// An effect with its values, in the order in which its pattern names them.
struct Effect {
  EffectID id = EffectID::told;
  std::vector<EffectValue> values;

  /// "smc", "disk", "log", "reply", "power", "proc", "mac", "app".
  [[nodiscard]] std::string_view kind() const;
  [[nodiscard]] std::string text() const;
  // A value by its place. To ask for one that the effect does not have is a mistake in the program.
  [[nodiscard]] std::int64_t number(std::size_t index) const;
  [[nodiscard]] const std::string& word(std::size_t index) const;
  /// The new value of a changed field; none: it is gone, did not change, or no record did.
  [[nodiscard]] std::optional<std::string_view> field(std::string_view name) const;
};

/// The effect that a journal's file tells; `told` when no pattern fits.
Effect effectFrom(std::string_view kind, std::string_view text);

/// Whether the values are those that the effect's pattern names. False only for one from outside.
bool isWhole(const Effect& effect);

namespace effects {

template <EffectID id>
inline constexpr std::string_view pattern = "";
#define EFFECT(id, kind, words) \
  template <>                   \
  inline constexpr std::string_view pattern<EffectID::id> = words;
#include "VirtualMac/Schedule/Effects.def"
#undef EFFECT

template <class Value>
consteval char placeholderOf() {
  if (std::same_as<Value, EffectFields>) return 'f';
  return std::is_integral_v<Value> ? 'd' : 's';
}

/// Whether values of these kinds are what a pattern asks for.
template <std::size_t Count>
consteval bool fits(std::string_view words, const std::array<char, Count>& given) {
  std::size_t index = 0;
  for (std::size_t at = 0; at < words.size(); ++at) {
    if (words[at] != '{') continue;
    const char asked = words[at + 1] == 'x' ? 'd' : words[at + 1];
    if (index == Count || given[index++] != asked) return false;
  }
  return index == Count;
}

template <class Value>
EffectValue valueOf(const Value& value) {
  if constexpr (std::same_as<Value, EffectFields>) {
    return value;
  } else if constexpr (std::is_integral_v<Value>) {
    return static_cast<std::int64_t>(value);
  } else {
    return std::string(value);
  }
}

}  // namespace effects

template <EffectID id, class... Values>
Effect effect(const Values&... values) {
  static_assert(
      effects::fits(effects::pattern<id>,
                    std::array<char, sizeof...(Values)>{effects::placeholderOf<Values>()...}),
      "the values are not those that the pattern names");
  return {id, {effects::valueOf(values)...}};
}

}  // namespace virtualmac
