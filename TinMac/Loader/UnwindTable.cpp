#include "TinMac/Loader/UnwindTable.h"

#include <map>

#include "TinMac/Loader/MachO.h"

namespace tinmac {

namespace {

constexpr std::uint64_t wordSize = sizeof(macho::Word);

class TableReader {
 public:
  explicit TableReader(const Bytes& bytes)
      : table(bytes), header(bytes.read<macho::UnwindHeader>(0)) {}

  std::vector<UnwoundRange> read() {
    if (header.version != 1) {
      throw Refused("unwind table of version " + std::to_string(header.version));
    }
    if (header.indexCount == 0) {
      return {};
    }
    for (macho::Word index = 0; index + 1 < header.indexCount; ++index) {
      readPart(indexEntry(index), indexEntry(index + 1).languageOffset);
    }
    close(indexEntry(header.indexCount - 1).function);
    std::erase_if(ranges, [](const UnwoundRange& range) {
      return range.encoding.mode() == UnwindEncoding::Mode::None;
    });
    for (UnwoundRange& range : ranges) {
      complete(range);
    }
    return std::move(ranges);
  }

 private:
  [[nodiscard]] macho::UnwindIndexEntry indexEntry(macho::Word index) const {
    using Entry = macho::UnwindIndexEntry;
    return table.read<Entry>(header.indexOffset + std::uint64_t{index} * sizeof(Entry));
  }

  void readPart(const macho::UnwindIndexEntry& entry, std::uint64_t languageEnd) {
    for (std::uint64_t at = entry.languageOffset; at < languageEnd; at += 2 * wordSize) {
      languageData[table.read<macho::Word>(at)] = table.read<macho::Word>(at + wordSize);
    }
    if (entry.pageOffset == 0) {
      add(entry.function, {});
      return;
    }
    const auto kind = table.read<macho::Word>(entry.pageOffset);
    if (kind == macho::unwindRegularPage) {
      readRegular(entry.pageOffset);
    } else if (kind == macho::unwindCompressedPage) {
      readCompressed(entry);
    } else {
      throw Refused("unwind page of the kind " + std::to_string(kind));
    }
  }

  void readRegular(std::uint64_t at) {
    const auto page = table.read<macho::UnwindPage>(at, 2 * wordSize);
    for (unsigned index = 0; index < page.entryCount; ++index) {
      const std::uint64_t entry = at + page.entriesOffset + std::uint64_t{index} * 2 * wordSize;
      add(table.read<macho::Word>(entry), {table.read<macho::Word>(entry + wordSize)});
    }
  }

  void readCompressed(const macho::UnwindIndexEntry& entry) {
    const auto page = table.read<macho::UnwindPage>(entry.pageOffset);
    for (unsigned index = 0; index < page.entryCount; ++index) {
      const auto raw =
          table.read<macho::Word>(entry.pageOffset + page.entriesOffset + index * wordSize);
      add(std::uint64_t{entry.function} + (raw & 0xffffff),
          {sharedEncoding(entry.pageOffset, page, raw >> 24)});
    }
  }

  /// The common encodings come first, then the page's own.
  [[nodiscard]] macho::Word sharedEncoding(std::uint64_t pageOffset, const macho::UnwindPage& page,
                                           unsigned index) const {
    if (index < header.commonCount) {
      return table.read<macho::Word>(header.commonOffset + index * wordSize);
    }
    const unsigned own = index - header.commonCount;
    if (own >= page.encodingCount) {
      throw Refused("unwind table: a function has encoding " + std::to_string(index) + " of " +
                    std::to_string(header.commonCount + page.encodingCount));
    }
    return table.read<macho::Word>(pageOffset + page.encodingsOffset + own * wordSize);
  }

  void add(std::uint64_t start, UnwindEncoding encoding) {
    close(start);
    ranges.push_back({start, start, encoding, {}, {}});
  }

  void close(std::uint64_t end) {
    if (ranges.empty()) {
      return;
    }
    if (end < ranges.back().start) {
      throw Refused("unwind table: the functions are not in order");
    }
    ranges.back().end = end;
  }

  void complete(UnwoundRange& range) const {
    const unsigned personality = range.encoding.personality();
    if (personality > header.personalityCount) {
      throw Refused("unwind table: personality " + std::to_string(personality) + " of " +
                    std::to_string(header.personalityCount));
    }
    if (personality != 0) {
      range.personalitySlot =
          table.read<macho::Word>(header.personalityOffset + (personality - 1) * wordSize);
    }
    if (range.encoding.hasLanguageData()) {
      const auto found = languageData.find(range.start);
      if (found == languageData.end()) {
        throw Refused("unwind table: the function at " + hexText(range.start) +
                      " has no language data");
      }
      range.languageData = found->second;
    }
  }

  const Bytes& table;
  macho::UnwindHeader header;
  std::vector<UnwoundRange> ranges;
  std::map<std::uint64_t, std::uint64_t> languageData;
};

}  // namespace

UnwindEncoding::Mode UnwindEncoding::mode() const {
  constexpr std::uint32_t notAFunctionStart = 0x80000000;
  constexpr std::uint32_t modeMask = 0x0f000000;
  constexpr std::uint32_t pairs = 0x00000f1f;
  constexpr std::uint32_t size = 0x00fff000;
  const auto refuse = [this] { throw Refused("unwind encoding " + hexText(raw)); };
  const auto only = [&](std::uint32_t known) {
    if ((raw & 0x00ffffff & ~known) != 0) {
      refuse();
    }
  };
  if ((raw & notAFunctionStart) != 0) {
    refuse();
  }
  switch (raw & modeMask) {
    case 0x00000000:
      only(0);
      return Mode::None;
    case 0x02000000:
      only(pairs | size);
      return Mode::Frameless;
    case 0x03000000:
      return Mode::Dwarf;
    case 0x04000000:
      only(pairs);
      return Mode::Frame;
    default:
      refuse();
      return Mode::None;
  }
}

std::vector<UnwoundRange> readUnwindTable(const Bytes& table) { return TableReader(table).read(); }

}  // namespace tinmac
