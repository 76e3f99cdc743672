#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace virtualmac {

/// One thing that happened, of those that somebody else than a reader of the journal acts on; all
/// others are `told`.
enum class EffectID : std::uint8_t {
#define EFFECT(id, kind, pattern) id,
#include "VirtualMac/Schedule/Effects.def"
#undef EFFECT
  told  ///< Its values are a kind and a text.
};

/// An effect with its values, in the order in which its pattern names them.
struct Effect {
  EffectID id = EffectID::told;
  std::vector<std::string> values;

  /// "smc", "disk", "log", "reply", "power", "proc", "mac", "app".
  [[nodiscard]] std::string_view kind() const;
  [[nodiscard]] std::string text() const;
  [[nodiscard]] const std::string& word(std::size_t index) const { return values.at(index); }
  /// 0 for a value that is no whole number, which only a foreign journal has.
  [[nodiscard]] std::int64_t number(std::size_t index) const;
  /// The new value of a record's field; none: it is gone, did not change, or no record did.
  [[nodiscard]] std::optional<std::string_view> field(std::string_view name) const;
};

/// The effect that a journal's file tells; `told` when no pattern fits.
Effect effectFrom(std::string_view kind, std::string_view text);

/// Whether there are as many values as the pattern asks for. False only for one from outside.
bool isWhole(const Effect& effect);

/// How many values a pattern names.
constexpr std::size_t placesIn(std::string_view pattern) {
  std::size_t places = 0;
  for (const char character : pattern) places += character == '{' ? 1 : 0;
  return places;
}

template <EffectID Id>
inline constexpr std::size_t placesOf = 2;
#define EFFECT(id, kind, pattern) \
  template <>                     \
  inline constexpr std::size_t placesOf<EffectID::id> = placesIn(pattern);
#include "VirtualMac/Schedule/Effects.def"
#undef EFFECT

/// Values are texts and whole numbers.
template <EffectID Id, class... Values>
Effect effect(const Values&... values) {
  static_assert(placesOf<Id> == sizeof...(Values), "not the values that the pattern names");
  [[maybe_unused]] const auto text = []<class Value>(const Value& value) {
    if constexpr (std::is_integral_v<Value>) {
      return std::to_string(value);
    } else {
      return std::string(value);
    }
  };
  return {Id, {text(values)...}};
}

}  // namespace virtualmac
