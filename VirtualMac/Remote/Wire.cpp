#include "VirtualMac/Remote/Wire.h"

#include <bit>
#include <utility>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

using korvel::Date;
using korvel::ErrorObject;
using korvel::PropertyValue;

namespace {

enum class Type : std::uint8_t {
  Absent,
  Boolean,
  Integer,
  Real,
  Text,
  Date,
  Data,
  Array,
  Dictionary
};

}  // namespace

void WireWriter::integer(std::uint64_t value, int size) {
  for (int index = 0; index < size; ++index) u8(static_cast<std::uint8_t>(value >> (8 * index)));
}

void WireWriter::real(double value) { u64(std::bit_cast<std::uint64_t>(value)); }

void WireWriter::text(std::string_view value) {
  u32(static_cast<std::uint32_t>(value.size()));
  bytes.append(value);
}

void WireWriter::raw(std::span<const std::uint8_t> value) {
  bytes.append(reinterpret_cast<const char*>(value.data()), value.size());
}

void WireWriter::property(const PropertyValue& value) {
  const auto type = [this](Type kind) { u8(static_cast<std::uint8_t>(kind)); };
  if (const auto truth = value.boolean()) {
    type(Type::Boolean);
    boolean(*truth);
  } else if (const auto whole = value.integer()) {
    type(Type::Integer);
    i64(*whole);
  } else if (const auto fraction = value.real()) {
    type(Type::Real);
    real(*fraction);
  } else if (const auto* string = value.text()) {
    type(Type::Text);
    text(*string);
  } else if (const auto* date = value.date()) {
    type(Type::Date);
    real(date->secondsSinceReference);
  } else if (const auto* data = value.data()) {
    type(Type::Data);
    u32(static_cast<std::uint32_t>(data->size()));
    raw(*data);
  } else if (const auto* array = value.array()) {
    type(Type::Array);
    u32(static_cast<std::uint32_t>(array->size()));
    for (const PropertyValue& element : *array) property(element);
  } else if (const auto* dictionary = value.dictionary()) {
    type(Type::Dictionary);
    u32(static_cast<std::uint32_t>(dictionary->size()));
    for (const auto& [key, element] : *dictionary) {
      text(key);
      property(element);
    }
  } else {
    type(Type::Absent);
  }
}

void WireWriter::error(const ErrorObject& value) {
  text(value.domain);
  i64(value.code);
  property(value.userInfo);
}

void WireReader::fail(std::string_view what) {
  if (!failed()) failureText = what;
  rest = {};
}

bool WireReader::finish() {
  if (!failed() && !rest.empty()) fail("bytes left over after the last value");
  return !failed();
}

std::string_view WireReader::take(std::size_t size) {
  if (size > rest.size()) {
    fail("truncated: a value reaches beyond the end");
    return {};
  }
  const std::string_view taken = rest.substr(0, size);
  rest.remove_prefix(size);
  return taken;
}

std::uint64_t WireReader::integer(std::size_t size) {
  std::uint64_t value = 0;
  int shift = 0;
  for (const char byte : take(size)) {
    value |= std::uint64_t{static_cast<std::uint8_t>(byte)} << shift;
    shift += 8;
  }
  return value;
}

double WireReader::real() { return std::bit_cast<double>(u64()); }

bool WireReader::boolean() {
  const std::uint8_t value = u8();
  if (value > 1) fail("a Boolean that is neither 0 nor 1");
  return value == 1;
}

std::string WireReader::text() {
  const std::uint32_t size = u32();
  return std::string(take(size));
}

void WireReader::raw(std::span<std::uint8_t> value) {
  const std::string_view taken = take(value.size());
  for (std::size_t index = 0; index < taken.size(); ++index)
    value[index] = static_cast<std::uint8_t>(taken[index]);
}

PropertyValue WireReader::propertyAt(std::size_t depth) {
  const auto type = static_cast<Type>(u8());
  const bool nests = type == Type::Array || type == Type::Dictionary;
  if (nests && depth == bounds::deepestProperty) {
    fail("values nested more than " + std::to_string(bounds::deepestProperty) + " deep");
    return {};
  }
  switch (type) {
    case Type::Absent:
      return {};
    case Type::Boolean:
      return boolean();
    case Type::Integer:
      return i64();
    case Type::Real:
      return real();
    case Type::Text:
      return text();
    case Type::Date:
      return Date{real()};
    case Type::Data: {
      const std::string bytes = text();
      return PropertyValue::Data(bytes.begin(), bytes.end());
    }
    case Type::Array: {
      // The array grows element by element, since the count may be a lie.
      PropertyValue::Array array;
      for (std::uint32_t count = u32(); count > 0 && !failed(); --count)
        array.push_back(propertyAt(depth + 1));
      return array;
    }
    case Type::Dictionary: {
      PropertyValue::Dictionary dictionary;
      for (std::uint32_t count = u32(); count > 0 && !failed(); --count) {
        std::string key = text();
        if (!dictionary.emplace(std::move(key), propertyAt(depth + 1)).second)
          fail("a dictionary with the same key twice");
      }
      return dictionary;
    }
  }
  fail("an unknown type of value");
  return {};
}

ErrorObject WireReader::error() {
  ErrorObject value;
  value.domain = text();
  value.code = i64();
  const PropertyValue details = property();
  if (const auto* dictionary = details.dictionary())
    value.userInfo = *dictionary;
  else
    fail("an error whose details are not a dictionary");
  return value;
}

}  // namespace virtualmac
