#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Base/Date.h"

namespace korvel {

/// One property-list value. Types are strict: a Boolean is not a number, and an integer is not a
/// real. Arrays and dictionaries are shared and immutable, so a copy costs a reference count.
class PropertyValue {
 public:
  using Data = std::vector<std::uint8_t>;
  using Array = std::vector<PropertyValue>;
  using Dictionary = std::map<std::string, PropertyValue, std::less<>>;

  PropertyValue() = default;  ///< Absent.
  // NOLINTBEGIN(google-explicit-constructor): a value of each type is a property value
  PropertyValue(bool value) : content(value) {}
  PropertyValue(std::int64_t value) : content(value) {}
  PropertyValue(int value) : content(std::int64_t{value}) {}
  PropertyValue(double value) : content(value) {}
  PropertyValue(std::string value) : content(std::move(value)) {}
  PropertyValue(const char* value) : content(std::string(value)) {}
  PropertyValue(Date value) : content(value) {}
  PropertyValue(Data value) : content(std::move(value)) {}
  PropertyValue(Array value) : content(std::make_shared<const Array>(std::move(value))) {}
  PropertyValue(Dictionary value) : content(std::make_shared<const Dictionary>(std::move(value))) {}
  // NOLINTEND(google-explicit-constructor)

  [[nodiscard]] bool isAbsent() const { return std::holds_alternative<std::monostate>(content); }
  [[nodiscard]] std::optional<bool> boolean() const;
  [[nodiscard]] std::optional<std::int64_t> integer() const;
  [[nodiscard]] std::optional<double> real() const;
  /// Null when the value is of another type; valid as long as this value.
  [[nodiscard]] const std::string* text() const;
  [[nodiscard]] const Data* data() const;
  [[nodiscard]] const Date* date() const;
  [[nodiscard]] const Array* array() const;
  [[nodiscard]] const Dictionary* dictionary() const;
  /// The entry of a dictionary; absent for a missing key and for any other type.
  [[nodiscard]] const PropertyValue& operator[](std::string_view key) const;

  /// Equal type and equal content, deeply.
  friend bool operator==(const PropertyValue& left, const PropertyValue& right);

 private:
  std::variant<std::monostate, bool, std::int64_t, double, std::string, Date, Data,
               std::shared_ptr<const Array>, std::shared_ptr<const Dictionary>>
      content;
};

}  // namespace korvel
