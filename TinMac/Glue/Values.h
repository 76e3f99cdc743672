#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Base/ErrorObject.h"
#include "Base/PropertyValue.h"
#include "TinMac/Frameworks/Values.h"

namespace tinmac {

using HeardValue = std::variant<korvel::PropertyValue, korvel::ErrorObject>;

/// Hears values from the frameworks, one after the other. One thread at a time; it stays where it
/// is, because the sink points at it. Traps on what no value looks like.
class ValueHearer {
 public:
  ValueHearer();
  ValueHearer(const ValueHearer&) = delete;
  ValueHearer& operator=(const ValueHearer&) = delete;

  [[nodiscard]] const TinValueSink& sink() const { return hearing; }
  /// The whole values heard so far; none is left afterwards.
  std::vector<HeardValue> take();

 private:
  friend struct Hearing;

  /// An array, a dictionary or an error whose end was not heard yet.
  struct Open {
    enum class Kind : std::uint8_t { Array, Dictionary, Error };
    explicit Open(Kind begun) : kind(begun) {}

    Kind kind;
    korvel::PropertyValue::Array elements;
    korvel::PropertyValue::Dictionary entries;
    std::string key;
    korvel::ErrorObject error;
  };

  void add(korvel::PropertyValue value);
  void end();

  TinValueSink hearing{};
  std::vector<Open> open;
  std::vector<HeardValue> values;
};

/// Tells a value to the frameworks.
void tell(const korvel::PropertyValue& value, const TinValueSink& sink);
void tell(const korvel::ErrorObject& error, const TinValueSink& sink);
/// A text, or `absent`.
void tell(const std::optional<std::string>& text, const TinValueSink& sink);

}  // namespace tinmac
