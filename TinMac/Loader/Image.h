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

struct Layout;

/// The address of a symbol by its name in the object file (with the leading underscore); null:
/// nobody has it.
using Resolver = std::function<void*(std::string_view name)>;

struct ImageSection {
  std::string segment;
  std::string name;
  std::byte* address = nullptr;
  std::uint64_t size = 0;
  std::uint32_t flags = 0;
};

/// An arm64 Mach-O program or library, mapped into this process. The mapping stays for the
/// process's life: nothing unloads an image. Main thread.
///
/// bind() comes before all other steps and each step comes once, else it fails.
///
/// Failure: a text that names the file and what was not understood (a load command, a pointer
/// format, an unwind mode, a symbol), never a guess. The image is then of no use.
class Image {
 public:
  using Failure = std::string;

  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image();

  /// Maps the file's segments with their protections still open for fixups. With a place the image
  /// begins there, or fails when something is there already.
  static std::expected<std::unique_ptr<Image>, Failure> map(const std::string& path,
                                                            std::byte* place = nullptr);

  /// Applies the chained fixups. A symbol that every image may define (such as an inline function)
  /// is the image's own where it has one. Fails with every name that `resolve` does not have, each
  /// with the library that the image wants it from; a weak import may be null.
  std::expected<void, Failure> bind(const Resolver& resolve);
  /// Gives the segments their own protections; the text becomes executable.
  std::expected<void, Failure> protect();
  /// Makes the image's functions known to this process's unwinder. Returns how many descriptions
  /// that took: neighbours that unwind alike share one.
  std::expected<std::size_t, Failure> registerUnwind();
  /// Runs the initialisers, in the image's order. They find no arguments of the process. Called
  /// once, after all other steps.
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
  struct Steps {
    bool bound = false;
    bool guarded = false;
    bool unwinding = false;
  };
  using Initialiser = void (*)(int, char**, char**, char**, const void*);

  Image();
  std::expected<void, Failure> attempt(const std::function<void()>& work) const;
  void mapSegments(std::byte* wanted);
  void keepInitialisers();
  void keepInitialiser(const ImageSection& section, std::uint64_t fromHeader);
  [[nodiscard]] std::vector<std::uint64_t> resolveImports(const Resolver& resolve) const;

  std::string file;
  std::vector<std::byte> contents;
  std::unique_ptr<Layout> layout;
  Steps done;
  std::byte* base = nullptr;
  std::vector<ImageSection> parts;
  std::map<std::string, void*, std::less<>> symbols;
  std::vector<Initialiser> initialisers;
  void* start = nullptr;
};

}  // namespace tinmac
