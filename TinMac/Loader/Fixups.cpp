#include "TinMac/Loader/Fixups.h"

#include <bit>

#include "TinMac/Loader/MachO.h"
#include "TinMac/Loader/Treatments.h"

namespace tinmac {

namespace {

constexpr std::uint64_t bits(std::uint64_t value, unsigned first, unsigned count) {
  return (value >> first) & ((std::uint64_t{1} << count) - 1);
}

/// A chained pointer of the two plain formats. Its links are counted in steps of four bytes.
struct Link {
  std::uint64_t raw;

  [[nodiscard]] bool isBind() const { return bits(raw, 63, 1) != 0; }
  [[nodiscard]] std::uint64_t next() const { return bits(raw, 51, 12) * 4; }
  [[nodiscard]] std::uint64_t import() const { return bits(raw, 0, 24); }
  [[nodiscard]] std::uint64_t addend() const { return bits(raw, 24, 8); }
  [[nodiscard]] std::uint64_t target() const { return bits(raw, 0, 36); }
  [[nodiscard]] std::uint64_t highByte() const { return bits(raw, 36, 8) << 56; }
  [[nodiscard]] bool hasReserved() const {
    return isBind() ? bits(raw, 32, 19) != 0 : bits(raw, 44, 7) != 0;
  }
};

macho::FixupsHeader readHeader(const Bytes& fixups) {
  const auto header = fixups.read<macho::FixupsHeader>(0);
  if (header.version != 0) {
    throw Refused("chained fixups of version " + std::to_string(header.version));
  }
  if (header.importFormat != macho::importPlain) {
    throw Refused("import format " + std::to_string(header.importFormat) + " (" +
                  std::string(importFormatName(header.importFormat)) + ") is not supported");
  }
  if (header.nameFormat != 0) {
    throw Refused("compressed names of imports are not supported");
  }
  return header;
}

/// The three highest ordinals are places of their own.
void placeImport(Import& import, std::uint64_t ordinal, const std::vector<std::string>& libraries) {
  constexpr std::uint64_t mainProgram = 0xff;
  constexpr std::uint64_t anyImage = 0xfe;
  constexpr std::uint64_t sharedDefinition = 0xfd;
  if (ordinal == 0) {
    import.library = "this image";
    import.ownFirst = true;
  } else if (ordinal == mainProgram) {
    import.library = "the main program";
  } else if (ordinal == anyImage) {
    import.library = "any image";
  } else if (ordinal == sharedDefinition) {
    import.library = "any image, shared";
    import.ownFirst = true;
  } else if (ordinal <= libraries.size()) {
    import.library = libraries[ordinal - 1];
  } else {
    throw Refused("import " + import.name + " names library " + std::to_string(ordinal) + " of " +
                  std::to_string(libraries.size()));
  }
}

/// Fixes the pointers of one segment.
class SegmentFixer {
 public:
  SegmentFixer(const Segment& fixed, const Layout& image, std::byte* mapped,
               const std::vector<std::uint64_t>& imports)
      : segment(fixed), layout(image), header(mapped), targets(imports) {}

  void fix(const Bytes& starts) {
    read = starts.read<macho::SegmentStarts>(0, macho::segmentStartsSize);
    if (read.pointerFormat != macho::pointerPlain && read.pointerFormat != macho::pointerOffset) {
      throw Refused("pointer format " + std::to_string(read.pointerFormat) + " (" +
                    std::string(pointerFormatName(read.pointerFormat)) + ") is not supported");
    }
    if (read.segmentOffset != segment.address - layout.lowest) {
      throw Refused("the fixups of segment " + segment.name + " belong to another address");
    }
    for (std::uint64_t page = 0; page < read.pageCount; ++page) {
      const auto start =
          starts.read<std::uint16_t>(macho::segmentStartsSize + page * sizeof(std::uint16_t));
      if (start == macho::pageWithoutFixups) {
        continue;
      }
      if ((start & macho::pageWithSeveralStarts) != 0) {
        throw Refused("a page of segment " + segment.name + " with several chains");
      }
      walk(page, start);
    }
  }

 private:
  void walk(std::uint64_t page, std::uint64_t inPage) const {
    const std::uint64_t pageStart = page * read.pageSize;
    while (true) {
      const std::uint64_t offset = pageStart + inPage;
      if (inPage >= read.pageSize || offset + sizeof(Link) > segment.memorySize) {
        throw Refused("a chain of pointers leaves its page in segment " + segment.name);
      }
      std::byte* place = header + read.segmentOffset + offset;
      Link link{};
      std::memcpy(&link, place, sizeof link);
      const std::uint64_t value = pointer(link);
      std::memcpy(place, &value, sizeof value);
      if (link.next() == 0) {
        return;
      }
      inPage += link.next();
    }
  }

  [[nodiscard]] std::uint64_t pointer(Link link) const {
    if (link.hasReserved()) {
      throw Refused("a pointer of segment " + segment.name +
                    " has unknown bits: " + hexText(link.raw));
    }
    if (link.isBind()) {
      if (link.import() >= targets.size()) {
        throw Refused("a pointer of segment " + segment.name + " wants import " +
                      std::to_string(link.import()) + " of " + std::to_string(targets.size()));
      }
      return targets[link.import()] + link.addend();
    }
    const std::uint64_t offset =
        read.pointerFormat == macho::pointerOffset ? link.target() : link.target() - layout.lowest;
    if (offset > layout.span) {
      throw Refused("a pointer of segment " + segment.name +
                    " leads out of the image: " + hexText(link.raw));
    }
    return (std::bit_cast<std::uint64_t>(header) + offset) | link.highByte();
  }

  const Segment& segment;
  const Layout& layout;
  std::byte* header;
  const std::vector<std::uint64_t>& targets;
  macho::SegmentStarts read{};
};

}  // namespace

std::vector<Import> readImports(const Bytes& fixups, const std::vector<std::string>& libraries) {
  const macho::FixupsHeader header = readHeader(fixups);
  std::vector<Import> imports;
  for (std::uint64_t index = 0; index < header.importCount; ++index) {
    const auto raw = fixups.read<macho::Word>(header.importsOffset + index * sizeof(macho::Word));
    const std::uint64_t name = header.namesOffset + bits(raw, 9, 23);
    Import import{std::string(fixups.text(name)), {}, bits(raw, 8, 1) != 0};
    placeImport(import, bits(raw, 0, 8), libraries);
    imports.push_back(std::move(import));
  }
  return imports;
}

void applyFixups(const Bytes& fixups, const Layout& layout, std::byte* header,
                 const std::vector<std::uint64_t>& targets) {
  const std::uint64_t starts = readHeader(fixups).startsOffset;
  const auto count = fixups.read<macho::Word>(starts);
  if (count > layout.segments.size()) {
    throw Refused("fixups of " + std::to_string(count) + " segments for an image that has " +
                  std::to_string(layout.segments.size()));
  }
  for (std::uint64_t index = 0; index < count; ++index) {
    const auto offset = fixups.read<macho::Word>(starts + (index + 1) * sizeof(macho::Word));
    if (offset == 0) {
      continue;
    }
    const auto size = fixups.read<macho::Word>(starts + offset);
    const Bytes part = fixups.part(starts + offset, size, "the fixups of a segment");
    SegmentFixer(layout.segments[index], layout, header, targets).fix(part);
  }
}

}  // namespace tinmac
