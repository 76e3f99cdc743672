#include "TinMac/Loader/Bytes.h"

#include <charconv>

namespace tinmac {

namespace {

constexpr unsigned wordBits = 64;

}  // namespace

std::string hexText(std::uint64_t value) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, value, 16).ptr;
  return "0x" + std::string(digits, end);
}

void Bytes::require(std::uint64_t offset, std::uint64_t size) const {
  if (offset > data.size() || size > data.size() - offset) {
    throw Refused("truncated: " + std::string(name) + " has " + std::to_string(data.size()) +
                  " bytes, " + std::to_string(size) + " are wanted at " + std::to_string(offset));
  }
}

Bytes Bytes::part(std::uint64_t offset, std::uint64_t size, std::string_view part) const {
  if (offset > data.size() || size > data.size() - offset) {
    throw Refused("truncated: " + std::string(part) + " (" + std::to_string(size) + " bytes at " +
                  std::to_string(offset) + ") reaches beyond the " + std::to_string(data.size()) +
                  " bytes of " + std::string(name));
  }
  return {data.subspan(offset, size), part};
}

std::string_view Bytes::text(std::uint64_t offset) const {
  require(offset, 1);
  const auto* first = reinterpret_cast<const char*>(data.data() + offset);
  const std::size_t length = ::strnlen(first, data.size() - offset);
  if (length == data.size() - offset) {
    throw Refused("truncated: " + std::string(name) + " ends within a name");
  }
  return {first, length};
}

std::uint64_t Bytes::uleb(std::uint64_t& offset) const {
  std::uint64_t value = 0;
  for (unsigned shift = 0; shift < wordBits; shift += 7) {
    const auto next = read<std::uint8_t>(offset++);
    value |= static_cast<std::uint64_t>(next & 0x7f) << shift;
    if ((next & 0x80) == 0) {
      return value;
    }
  }
  throw Refused(std::string(name) + ": a number has more than 64 bits");
}

std::int64_t Bytes::sleb(std::uint64_t& offset) const {
  std::uint64_t value = 0;
  for (unsigned shift = 0; shift < wordBits;) {
    const auto next = read<std::uint8_t>(offset++);
    value |= static_cast<std::uint64_t>(next & 0x7f) << shift;
    shift += 7;
    if ((next & 0x80) == 0) {
      if ((next & 0x40) != 0 && shift < wordBits) {
        value |= ~std::uint64_t{0} << shift;
      }
      return static_cast<std::int64_t>(value);
    }
  }
  throw Refused(std::string(name) + ": a number has more than 64 bits");
}

}  // namespace tinmac
