#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tinmac {

/// The address of a symbol by its name in the object file (with the leading underscore); null: nobody
/// has it.
using Resolver = std::function<void*(std::string_view name)>;

struct ImageSection {
  std::string segment;
  std::string name;
  std::byte* address = nullptr;
  std::uint64_t size = 0;
  std::uint32_t flags = 0;
};

/// An arm64 Mach-O program or library, mapped into this process. The mapping stays for the process's
/// life: nothing unloads an image. Main thread.
///
/// Failure: a text that names what was not understood (a load command, a pointer format, an unwind
/// mode, a symbol), never a guess.
class Image {
 public:
  using Failure = std::string;

  /// Maps the file's segments with their protections still open for fixups.
  static std::expected<std::unique_ptr<Image>, Failure> map(const std::string& path);

  /// Applies the chained fixups. Fails with every name that `resolve` does not have.
  std::expected<void, Failure> bind(const Resolver& resolve);
  /// Gives the segments their own protections; the text becomes executable.
  std::expected<void, Failure> protect();
  /// Makes the image's functions known to this process's unwinder. Returns how many.
  std::expected<std::size_t, Failure> registerUnwind();
  /// Runs the initialisers, in the image's order.
  void runInitialisers() const;

  [[nodiscard]] const std::string& path() const { return file; }
  [[nodiscard]] std::byte* header() const { return base; }
  [[nodiscard]] const std::vector<ImageSection>& sections() const { return parts; }
  [[nodiscard]] const ImageSection* section(std::string_view segment, std::string_view name) const;
  /// An external symbol that the image defines; null: it has none of that name.
  [[nodiscard]] void* symbol(std::string_view name) const;
  /// main(); null for a library.
  [[nodiscard]] void* entry() const { return start; }

 private:
  Image() = default;

  std::string file;
  std::byte* base = nullptr;
  std::vector<ImageSection> parts;
  std::map<std::string, void*, std::less<>> symbols;
  void* start = nullptr;
};

}  // namespace tinmac
