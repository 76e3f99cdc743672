#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "Base/ErrorObject.h"
#include "Base/PropertyValue.h"

namespace virtualmac {

/// Writes a frame's body. Integers are little-endian, a text or a byte string is its length and its
/// bytes, a property-list value is a type byte and its content.
class WireWriter {
 public:
  void u8(std::uint8_t value) { bytes.push_back(static_cast<char>(value)); }
  void u16(std::uint16_t value) { integer(value, 2); }
  void u32(std::uint32_t value) { integer(value, 4); }
  void u64(std::uint64_t value) { integer(value, 8); }
  void i64(std::int64_t value) { u64(static_cast<std::uint64_t>(value)); }
  void real(double value);
  void boolean(bool value) { u8(value ? 1 : 0); }
  void text(std::string_view value);
  void raw(std::span<const std::uint8_t> value);
  void property(const korvel::PropertyValue& value);
  void error(const korvel::ErrorObject& value);

  [[nodiscard]] const std::string& body() const { return bytes; }

 private:
  void integer(std::uint64_t value, int size);

  std::string bytes;
};

/// Reads a frame's body and checks everything. The first defect (a length beyond the end, a Boolean
/// of 2, an unknown type, values nested too deeply, bytes left over) is kept as the failure, and
/// every later read gives an empty value. So callers read everything, then ask once.
class WireReader {
 public:
  explicit WireReader(std::string_view body) : rest(body) {}

  std::uint8_t u8() { return static_cast<std::uint8_t>(integer(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(integer(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(integer(4)); }
  std::uint64_t u64() { return integer(8); }
  std::int64_t i64() { return static_cast<std::int64_t>(u64()); }
  double real();
  bool boolean();
  std::string text();
  void raw(std::span<std::uint8_t> value);
  korvel::PropertyValue property() { return propertyAt(0); }
  korvel::ErrorObject error();

  /// Reports a defect that the caller found. The first one stays.
  void fail(std::string_view what);
  [[nodiscard]] bool failed() const { return !failureText.empty(); }
  /// True: there was no defect and no bytes are left.
  bool finish();
  /// The first defect, for a person.
  [[nodiscard]] const std::string& failure() const { return failureText; }

 private:
  std::uint64_t integer(std::size_t size);
  std::string_view take(std::size_t size);
  korvel::PropertyValue propertyAt(std::size_t depth);

  std::string_view rest;
  std::string failureText;
};

}  // namespace virtualmac
