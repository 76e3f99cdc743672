#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace tinmac {

/// An image that the loader does not understand or does not trust. Never leaves the room: the
/// public functions return its text.
class Refused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string hexText(std::uint64_t value);

/// A part of an image that is read only within its bounds. Does not own the bytes. A read beyond
/// the end throws Refused with the part's name.
class Bytes {
 public:
  Bytes(std::span<const std::byte> all, std::string_view called) : data(all), name(called) {}

  [[nodiscard]] std::uint64_t size() const { return data.size(); }
  [[nodiscard]] const std::byte* begin() const { return data.data(); }

  /// The value at `offset`, `size` bytes of which are in the part (by default all).
  template <typename Value>
  [[nodiscard]] Value read(std::uint64_t offset, std::size_t size = sizeof(Value)) const {
    static_assert(std::is_trivially_copyable_v<Value>);
    require(offset, size);
    Value value{};
    std::memcpy(&value, data.data() + offset, size);
    return value;
  }
  /// The sub-part of `size` bytes at `offset`; `part` names it.
  [[nodiscard]] Bytes part(std::uint64_t offset, std::uint64_t size, std::string_view part) const;
  /// The zero-terminated text at `offset`.
  [[nodiscard]] std::string_view text(std::uint64_t offset) const;
  /// The number of seven bits a byte at `offset`, which moves behind it.
  [[nodiscard]] std::uint64_t uleb(std::uint64_t& offset) const;
  [[nodiscard]] std::int64_t sleb(std::uint64_t& offset) const;

 private:
  void require(std::uint64_t offset, std::uint64_t size) const;

  std::span<const std::byte> data;
  std::string_view name;
};

}  // namespace tinmac
