#pragma once

#include <cstdint>

/// The object file format of a 64-bit arm64 Mac, as far as the loader reads it. Every number is
/// little-endian, as is this process.
namespace tinmac::macho {

using Word = std::uint32_t;
using Long = std::uint64_t;

inline constexpr Word magic64 = 0xfeedfacf;
inline constexpr Word magic32 = 0xfeedface;
/// The two kinds of file with several processors' programs begin big-endian.
inline constexpr Word fatMagic = 0xbebafeca;
inline constexpr Word fatMagic64 = 0xbfbafeca;
inline constexpr Word processorArm64 = 0x0100000c;
inline constexpr Word processorKindMask = 0x00ffffff;
inline constexpr Word fileTypeProgram = 2;
inline constexpr Word fileTypeLibrary = 6;
inline constexpr Word flagPositionIndependent = 0x200000;
inline constexpr Word platformMac = 1;
inline constexpr Long pageSize = 0x4000;

struct Header {
  Word magic, processor, processorKind, fileType, commandCount, commandsSize, flags, reserved;
};
static_assert(sizeof(Header) == 32);

struct Command {
  Word kind, size;
};

struct SegmentCommand {
  Word kind, size;
  char name[16];
  Long address, memorySize, fileOffset, fileSize;
  Word maximalProtection, protection, sectionCount, flags;
};
static_assert(sizeof(SegmentCommand) == 72);
inline constexpr Word segmentReadOnlyAfterFixups = 0x10;

struct SectionRecord {
  char name[16];
  char segment[16];
  Long address, size;
  Word fileOffset, alignment, relocationOffset, relocationCount, flags, reserved[3];
};
static_assert(sizeof(SectionRecord) == 80);
inline constexpr Word sectionTypeMask = 0xff;
inline constexpr Word sectionZeroFill = 0x01;
inline constexpr Word sectionBigZeroFill = 0x0c;
inline constexpr Word sectionInitialiserPointers = 0x09;
inline constexpr Word sectionInitialiserOffsets = 0x16;

struct SymbolTableCommand {
  Word kind, size, symbolOffset, symbolCount, textOffset, textSize;
};

struct Symbol {
  Word name;
  std::uint8_t type, section;
  std::uint16_t description;
  Long value;
};
static_assert(sizeof(Symbol) == 16);
inline constexpr std::uint8_t symbolDebuggerMask = 0xe0;
inline constexpr std::uint8_t symbolPrivate = 0x10;
inline constexpr std::uint8_t symbolKindMask = 0x0e;
inline constexpr std::uint8_t symbolExternal = 0x01;
inline constexpr std::uint8_t symbolAbsolute = 0x02;
inline constexpr std::uint8_t symbolInSection = 0x0e;

struct LibraryCommand {
  Word kind, size, nameOffset, timestamp, currentVersion, compatibleVersion;
};

/// A command that names a part of the file.
struct DataCommand {
  Word kind, size, offset, dataSize;
};

struct EntryCommand {
  Word kind, size;
  Long offset, stackSize;
};

struct PlatformCommand {
  Word kind, size, platform, oldestSystem, sdk, toolCount;
};

inline constexpr std::uint64_t exportKindMask = 0x03;
inline constexpr std::uint64_t exportRegular = 0x00;
inline constexpr std::uint64_t exportAbsolute = 0x02;
inline constexpr std::uint64_t exportWeak = 0x04;

struct FixupsHeader {
  Word version, startsOffset, importsOffset, namesOffset, importCount, importFormat, nameFormat;
};
inline constexpr Word importPlain = 1;

/// How one segment's pointers are chained; the start of each page's chain follows at byte 22.
struct SegmentStarts {
  Word size;
  std::uint16_t pageSize, pointerFormat;
  Long segmentOffset;
  Word highestPointer;
  std::uint16_t pageCount;
};
inline constexpr Word segmentStartsSize = 22;
inline constexpr std::uint16_t pointerPlain = 2;
inline constexpr std::uint16_t pointerOffset = 6;
inline constexpr std::uint16_t pageWithoutFixups = 0xffff;
inline constexpr std::uint16_t pageWithSeveralStarts = 0x8000;

struct UnwindHeader {
  Word version, commonOffset, commonCount, personalityOffset, personalityCount, indexOffset,
      indexCount;
};

struct UnwindIndexEntry {
  Word function, pageOffset, languageOffset;
};

inline constexpr Word unwindRegularPage = 2;
inline constexpr Word unwindCompressedPage = 3;

/// The second-level page's head; a regular page has only the first three fields.
struct UnwindPage {
  Word kind;
  std::uint16_t entriesOffset, entryCount, encodingsOffset, encodingCount;
};

}  // namespace tinmac::macho
