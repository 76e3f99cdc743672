#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "TinMac/Loader/Bytes.h"

namespace tinmac {

/// A segment in the file's own addresses.
struct Segment {
  std::string name;
  std::uint64_t address = 0;
  std::uint64_t memorySize = 0;
  std::uint64_t fileOffset = 0;
  std::uint64_t fileSize = 0;
  /// Bits of mmap()'s protection, which are the same on both systems.
  std::uint32_t protection = 0;
  bool readOnlyAfterFixups = false;

  /// The program's empty first segment only keeps addresses free that another process owns.
  [[nodiscard]] bool isReserve() const { return protection == 0 && fileSize == 0; }
};

struct Section {
  std::string segment;
  std::string name;
  std::uint64_t address = 0;
  std::uint64_t size = 0;
  std::uint32_t flags = 0;
};

struct FilePart {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

struct SymbolTable {
  FilePart symbols;
  FilePart text;
};

/// The header and the load commands say this.
struct Layout {
  /// In the commands' order, which is how the fixups number them; the reserve included.
  std::vector<Segment> segments;
  std::vector<Section> sections;
  /// The first is number one in an import.
  std::vector<std::string> libraries;
  std::optional<FilePart> fixups;
  std::optional<FilePart> exports;
  std::optional<SymbolTable> symbolTable;
  /// From the header.
  std::optional<std::uint64_t> entry;
  /// The lowest mapped address, where the header is, and how far the image reaches from there.
  std::uint64_t lowest = 0;
  std::uint64_t span = 0;
};

/// Throws Refused for whatever the loader does not understand; every offset is checked.
Layout readLayout(const Bytes& file);

}  // namespace tinmac
