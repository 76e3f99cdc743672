#include "TinMac/Loader/Layout.h"

#include <algorithm>

#include "TinMac/Loader/MachO.h"
#include "TinMac/Loader/Treatments.h"

namespace tinmac {

namespace {

std::string fixedText(const char (&name)[16]) { return {name, ::strnlen(name, sizeof name)}; }

macho::Header readHeader(const Bytes& file) {
  const auto magic = file.read<macho::Word>(0);
  if (magic == macho::fatMagic || magic == macho::fatMagic64) {
    throw Refused("a file for several processors: the loader wants the arm64 part alone");
  }
  if (magic == macho::magic32) {
    throw Refused("a 32-bit file: the loader wants arm64");
  }
  if (magic != macho::magic64) {
    throw Refused("no Mach-O file: it begins with " + hexText(magic));
  }
  const auto header = file.read<macho::Header>(0);
  if (header.processor != macho::processorArm64) {
    throw Refused("wrong processor " + hexText(header.processor) + ": the loader wants arm64");
  }
  if ((header.processorKind & macho::processorKindMask) != 0) {
    throw Refused("wrong kind " + hexText(header.processorKind) +
                  " of arm64: the loader wants the plain one");
  }
  const bool program = header.fileType == macho::fileTypeProgram;
  if (!program && header.fileType != macho::fileTypeLibrary) {
    throw Refused("file type " + std::to_string(header.fileType) +
                  ": the loader wants a program or a library");
  }
  if (program && (header.flags & macho::flagPositionIndependent) == 0) {
    throw Refused("the program wants a fixed address");
  }
  return header;
}

/// Reads the commands one by one into a layout.
class LayoutReader {
 public:
  explicit LayoutReader(const Bytes& contents) : file(contents) {}

  Layout read() {
    const macho::Header header = readHeader(file);
    const Bytes commands =
        file.part(sizeof header, header.commandsSize, "the list of load commands");
    std::uint64_t offset = 0;
    for (macho::Word index = 0; index < header.commandCount; ++index) {
      const auto command = commands.read<macho::Command>(offset);
      if (command.size < sizeof command || command.size % 8 != 0) {
        throw Refused("load command " + std::to_string(index) + " has the size " +
                      std::to_string(command.size));
      }
      dispatch(command.kind, commands.part(offset, command.size, "a load command"));
      offset += command.size;
    }
    finish();
    return std::move(layout);
  }

 private:
  void dispatch(macho::Word kind, const Bytes& command) {
    const Treated known = loadCommand(kind);
    if (known.treatment == Treatment::Refused) {
      throw Refused("load command " + std::string(known.name) + " is not supported");
    }
    if (known.treatment == Treatment::Idle) {
      return;
    }
    if (known.name == "LC_SEGMENT_64") {
      readSegment(command);
    } else if (known.name == "LC_SYMTAB") {
      readSymbolTable(command);
    } else if (known.name == "LC_MAIN") {
      readEntry(command);
    } else if (known.name == "LC_BUILD_VERSION") {
      readPlatform(command);
    } else if (known.name == "LC_DYLD_EXPORTS_TRIE") {
      layout.exports = readData(command, "the exports trie");
    } else if (known.name == "LC_DYLD_CHAINED_FIXUPS") {
      layout.fixups = readData(command, "the chained fixups");
    } else {
      // All others that are read name a library.
      const auto library = command.read<macho::LibraryCommand>(0);
      layout.libraries.emplace_back(command.text(library.nameOffset));
    }
  }

  void readSegment(const Bytes& command) {
    const auto record = command.read<macho::SegmentCommand>(0);
    Segment segment{fixedText(record.name),
                    record.address,
                    record.memorySize,
                    record.fileOffset,
                    record.fileSize,
                    record.protection,
                    (record.flags & macho::segmentReadOnlyAfterFixups) != 0};
    checkSegment(segment);
    for (macho::Word index = 0; index < record.sectionCount; ++index) {
      readSection(segment, command.read<macho::SectionRecord>(
                               sizeof record + index * sizeof(macho::SectionRecord)));
    }
    layout.segments.push_back(std::move(segment));
  }

  void checkSegment(const Segment& segment) const {
    const std::string& name = segment.name;
    static_cast<void>(file.part(segment.fileOffset, segment.fileSize, "segment " + name));
    if (segment.address % macho::pageSize != 0 || segment.memorySize > highestAddress ||
        segment.address > highestAddress - segment.memorySize ||
        segment.fileSize > segment.memorySize) {
      throw Refused("segment " + name + " has no valid place in memory");
    }
    constexpr std::uint32_t write = 2;
    constexpr std::uint32_t execute = 4;
    if (segment.protection > 7 || (segment.protection & (write | execute)) == (write | execute)) {
      throw Refused("segment " + name + " has the protection " +
                    std::to_string(segment.protection));
    }
  }

  void readSection(const Segment& segment, const macho::SectionRecord& record) {
    Section section{fixedText(record.segment), fixedText(record.name), record.address, record.size,
                    record.flags};
    const std::string name = section.segment + "," + section.name;
    const macho::Word number = record.flags & macho::sectionTypeMask;
    const Treated type = sectionType(number);
    if (type.treatment == Treatment::Refused) {
      throw Refused("section " + name + " of the type " + std::string(type.name) +
                    " is not supported");
    }
    const bool empty = number == macho::sectionZeroFill || number == macho::sectionBigZeroFill;
    const std::uint64_t room = empty ? segment.memorySize : segment.fileSize;
    const std::uint64_t from = record.address - segment.address;
    if (record.address < segment.address || from > room || record.size > room - from ||
        section.segment != segment.name) {
      throw Refused("section " + name + " lies outside of its segment");
    }
    layout.sections.push_back(std::move(section));
  }

  void readSymbolTable(const Bytes& command) {
    const auto table = command.read<macho::SymbolTableCommand>(0);
    const FilePart symbols{table.symbolOffset, table.symbolCount * sizeof(macho::Symbol)};
    const FilePart text{table.textOffset, table.textSize};
    static_cast<void>(file.part(symbols.offset, symbols.size, "the symbol table"));
    static_cast<void>(file.part(text.offset, text.size, "the symbols' names"));
    layout.symbolTable = SymbolTable{symbols, text};
  }

  void readEntry(const Bytes& command) {
    const auto entry = command.read<macho::EntryCommand>(0);
    if (entry.stackSize != 0) {
      throw Refused("LC_MAIN wants a stack of " + std::to_string(entry.stackSize) + " bytes");
    }
    layout.entry = entry.offset;
  }

  static void readPlatform(const Bytes& command) {
    const auto build = command.read<macho::PlatformCommand>(0);
    if (build.platform != macho::platformMac) {
      throw Refused("built for platform " + std::to_string(build.platform) +
                    ": the loader wants macOS");
    }
  }

  [[nodiscard]] FilePart readData(const Bytes& command, std::string_view name) const {
    const auto data = command.read<macho::DataCommand>(0);
    static_cast<void>(file.part(data.offset, data.dataSize, name));
    return {data.offset, data.dataSize};
  }

  /// Finds what the image covers. Its header must be its first byte.
  void finish() {
    std::uint64_t end = 0;
    bool first = true;
    for (const Segment& segment : layout.segments) {
      if (segment.isReserve()) {
        continue;
      }
      if (first) {
        if (segment.fileOffset != 0 || segment.fileSize == 0) {
          throw Refused("segment " + segment.name + " is the first and lacks the header");
        }
        layout.lowest = segment.address;
        first = false;
      } else if (segment.address < end) {
        throw Refused("segment " + segment.name + " lies over the one before it");
      }
      end = segment.address + segment.memorySize;
    }
    if (first) {
      throw Refused("no segment");
    }
    layout.span = end - layout.lowest;
    if (layout.entry && *layout.entry >= layout.span) {
      throw Refused("LC_MAIN names " + hexText(*layout.entry) + ", outside of the image");
    }
  }

  static constexpr std::uint64_t highestAddress = std::uint64_t{1} << 47;

  const Bytes& file;
  Layout layout;
};

}  // namespace

Layout readLayout(const Bytes& file) { return LayoutReader(file).read(); }

}  // namespace tinmac
