#include "Base/PropertyValue.h"

namespace korvel {

namespace {

template <class Value, class Content>
std::optional<Value> valueIn(const Content& content) {
  if (const Value* value = std::get_if<Value>(&content)) return *value;
  return std::nullopt;
}

template <class Value, class Content>
const Value* sharedIn(const Content& content) {
  const auto* value = std::get_if<std::shared_ptr<const Value>>(&content);
  return value == nullptr ? nullptr : value->get();
}

}  // namespace

std::optional<bool> PropertyValue::boolean() const { return valueIn<bool>(content); }
std::optional<std::int64_t> PropertyValue::integer() const {
  return valueIn<std::int64_t>(content);
}
std::optional<double> PropertyValue::real() const { return valueIn<double>(content); }
const std::string* PropertyValue::text() const { return std::get_if<std::string>(&content); }
const PropertyValue::Data* PropertyValue::data() const { return std::get_if<Data>(&content); }
const Date* PropertyValue::date() const { return std::get_if<Date>(&content); }
const PropertyValue::Array* PropertyValue::array() const { return sharedIn<Array>(content); }
const PropertyValue::Dictionary* PropertyValue::dictionary() const {
  return sharedIn<Dictionary>(content);
}

const PropertyValue& PropertyValue::operator[](std::string_view key) const {
  static const PropertyValue absent;
  const Dictionary* entries = dictionary();
  if (entries == nullptr) return absent;
  const auto found = entries->find(key);
  return found == entries->end() ? absent : found->second;
}

bool operator==(const PropertyValue& left, const PropertyValue& right) {
  if (const auto* array = left.array()) return right.array() != nullptr && *array == *right.array();
  if (const auto* entries = left.dictionary()) {
    return right.dictionary() != nullptr && *entries == *right.dictionary();
  }
  return left.content == right.content;
}

}  // namespace korvel
