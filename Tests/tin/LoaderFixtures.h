#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "TinMac/Loader/Image.h"

namespace tinmac::fixtures {

/// The file of an image that was built with the tests.
std::string path(std::string_view name);

/// Symbols by name; null for all others.
Resolver resolverOf(std::map<std::string, void*, std::less<>> symbols);

using Mapped = std::expected<std::unique_ptr<Image>, Image::Failure>;

/// Takes an image through the other steps of loading; a failing one fails the test and gives null.
/// Unwinding can be left out, because it cannot be taken back.
std::unique_ptr<Image> load(Mapped image, const Resolver& resolve, bool unwind = false);
std::unique_ptr<Image> load(std::string_view name, const Resolver& resolve, bool unwind = false);

template <typename Function>
Function* function(const Image& image, std::string_view name) {
  return std::bit_cast<Function*>(image.symbol(name));
}

template <typename Value>
Value& variable(const Image& image, std::string_view name) {
  return *static_cast<Value*>(image.symbol(name));
}

/// A copy of an image's file to be spoiled.
class Copy {
 public:
  explicit Copy(std::string_view name);

  template <typename Value>
  [[nodiscard]] Value& at(std::uint64_t offset) {
    return *reinterpret_cast<Value*>(bytes.data() + offset);
  }
  /// Where the first load command of the kind begins.
  [[nodiscard]] std::uint64_t command(std::uint32_t kind);
  /// Where the section's record begins, and where its content.
  [[nodiscard]] std::uint64_t section(std::string_view name);
  [[nodiscard]] std::uint64_t content(std::string_view name);

  /// Maps the copy by way of a file that does not stay.
  [[nodiscard]] Mapped map() const;
  /// Why the copy cannot be mapped; empty: it can.
  [[nodiscard]] std::string refusal() const;
  /// Why it can be mapped, but not bound, when every symbol is there.
  [[nodiscard]] std::string bindRefusal() const;

  std::vector<std::byte> bytes;
};

}  // namespace tinmac::fixtures
