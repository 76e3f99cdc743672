#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "Tests/tin/LoaderFixtures.h"
#include "TinMac/Loader/MachO.h"

namespace tinmac {
namespace {

using fixtures::Copy;
using testing::HasSubstr;

constexpr std::uint32_t segmentKind = 0x19;
constexpr std::uint32_t symbolTableKind = 0x02;
constexpr std::uint32_t uuidKind = 0x1b;
constexpr std::uint32_t mainKind = 0x80000028;
constexpr std::uint32_t buildKind = 0x32;
constexpr std::uint32_t trieKind = 0x80000033;
constexpr std::uint32_t fixupsKind = 0x80000034;

template <typename Value>
std::string refusalWith(std::string_view name, std::uint64_t offset, Value value) {
  Copy copy(name);
  copy.at<Value>(offset) = value;
  return copy.refusal();
}

/// With another first load command of the kind `from`.
std::string refusalOfCommand(std::uint32_t kind) {
  Copy copy("basics.dylib");
  copy.at<macho::Command>(copy.command(uuidKind)).kind = kind;
  return copy.refusal();
}

TEST(LoaderRefusal, NamesTheFile) {
  const auto image = Image::map("/nowhere/at-all");
  ASSERT_FALSE(image);
  EXPECT_EQ(image.error(), "/nowhere/at-all: the file cannot be read");
}

TEST(LoaderRefusal, OfAnotherKindOfFile) {
  const auto spoiled = [](std::uint64_t offset, std::uint32_t value) {
    return refusalWith<std::uint32_t>("program", offset, value);
  };
  EXPECT_THAT(spoiled(0, 0xbebafeca), HasSubstr("a file for several processors"));
  EXPECT_THAT(spoiled(0, 0xbfbafeca), HasSubstr("a file for several processors"));
  EXPECT_THAT(spoiled(0, 0xfeedface), HasSubstr("a 32-bit file"));
  EXPECT_THAT(spoiled(0, 0x464c457f), HasSubstr("no Mach-O file: it begins with 0x464c457f"));
  EXPECT_THAT(spoiled(4, 0x01000007), HasSubstr("wrong processor 0x1000007"));
  EXPECT_THAT(spoiled(8, 0x80000002), HasSubstr("wrong kind 0x80000002 of arm64"));
  EXPECT_THAT(spoiled(12, 1), HasSubstr("file type 1"));
  EXPECT_THAT(spoiled(24, 0x85), HasSubstr("the program wants a fixed address"));
}

TEST(LoaderRefusal, OfLoadCommandsByNameOrNumber) {
  EXPECT_THAT(refusalOfCommand(0x80000022), HasSubstr("LC_DYLD_INFO_ONLY is not supported"));
  EXPECT_THAT(refusalOfCommand(0x5), HasSubstr("LC_UNIXTHREAD is not supported"));
  EXPECT_THAT(refusalOfCommand(0x8000001f), HasSubstr("LC_REEXPORT_DYLIB is not supported"));
  EXPECT_THAT(refusalOfCommand(0x2c), HasSubstr("LC_ENCRYPTION_INFO_64 is not supported"));
  EXPECT_THAT(refusalOfCommand(0x4d), HasSubstr("unknown load command 0x4d"));
  EXPECT_EQ(refusalOfCommand(0x2a), "");
}

TEST(LoaderRefusal, OfALoadCommandsSize) {
  for (const std::uint32_t size : {0U, 4U, 20U}) {
    Copy copy("basics.dylib");
    copy.at<macho::Command>(copy.command(uuidKind)).size = size;
    EXPECT_THAT(copy.refusal(), HasSubstr("has the size " + std::to_string(size)));
  }
}

TEST(LoaderRefusal, OfAnotherPlatform) {
  Copy copy("basics.dylib");
  copy.at<macho::PlatformCommand>(copy.command(buildKind)).platform = 2;
  EXPECT_THAT(copy.refusal(), HasSubstr("built for platform 2"));
}

TEST(LoaderRefusal, OfAnEntryThatIsNone) {
  Copy copy("program");
  copy.at<macho::EntryCommand>(copy.command(mainKind)).offset = 0x10000000;
  EXPECT_THAT(copy.refusal(), HasSubstr("LC_MAIN names 0x10000000, outside of the image"));
  Copy other("program");
  other.at<macho::EntryCommand>(other.command(mainKind)).stackSize = 65536;
  EXPECT_THAT(other.refusal(), HasSubstr("LC_MAIN wants a stack of 65536 bytes"));
}

TEST(LoaderRefusal, OfThreadLocalVariables) {
  const auto image = Image::map(fixtures::path("threadLocal.dylib"));
  ASSERT_FALSE(image);
  EXPECT_THAT(image.error(), HasSubstr("of the type S_THREAD_LOCAL_"));
  EXPECT_THAT(image.error(), HasSubstr("section __DATA,__thread_"));
}

TEST(LoaderRefusal, OfSectionTypes) {
  const auto spoiled = [](std::uint32_t type) {
    Copy copy("basics.dylib");
    copy.at<macho::SectionRecord>(copy.section("__later")).flags = type;
    return copy.refusal();
  };
  EXPECT_THAT(spoiled(0x0a), HasSubstr("section __DATA,__later of the type S_MOD_TERM_FUNC_POI"));
  EXPECT_THAT(spoiled(0x0d), HasSubstr("S_INTERPOSING is not supported"));
  EXPECT_THAT(spoiled(0x3f), HasSubstr("unknown section type 0x3f"));
}

TEST(LoaderRefusal, OfASectionOutsideOfItsSegment) {
  Copy copy("basics.dylib");
  copy.at<macho::SectionRecord>(copy.section("__later")).size = 0x100000;
  EXPECT_THAT(copy.refusal(), HasSubstr("__DATA,__later lies outside of its segment"));
}

TEST(LoaderRefusal, OfSegmentsWithoutAPlace) {
  const auto spoiled = [](auto spoil) {
    Copy copy("basics.dylib");
    spoil(copy.at<macho::SegmentCommand>(copy.command(segmentKind)));
    return copy.refusal();
  };
  using Segment = macho::SegmentCommand;
  EXPECT_THAT(spoiled([](Segment& text) { text.address = 0x10; }), HasSubstr("no valid place"));
  EXPECT_THAT(spoiled([](Segment& text) { text.memorySize = 16; }), HasSubstr("no valid place"));
  EXPECT_THAT(spoiled([](Segment& text) { text.memorySize = ~0ULL; }),
              HasSubstr("segment __TEXT has no valid place"));
  EXPECT_THAT(spoiled([](Segment& text) { text.protection = 7; }),
              HasSubstr("segment __TEXT has the protection 7"));
  EXPECT_THAT(spoiled([](Segment& text) { text.memorySize += 0x4000; }),
              HasSubstr("lies over the one before it"));
  EXPECT_THAT(spoiled([](Segment& text) { text.fileSize = 0x10000000; }),
              HasSubstr("truncated: segment __TEXT"));
}

TEST(LoaderRefusal, OfTablesOutsideOfTheFile) {
  Copy copy("basics.dylib");
  copy.at<macho::SymbolTableCommand>(copy.command(symbolTableKind)).symbolCount = 0xfffffff;
  EXPECT_THAT(copy.refusal(), HasSubstr("truncated: the symbol table"));
  Copy trie("basics.dylib");
  trie.at<macho::DataCommand>(trie.command(trieKind)).dataSize = 0x7fffffff;
  EXPECT_THAT(trie.refusal(), HasSubstr("truncated: the exports trie"));
  Copy fixups("basics.dylib");
  fixups.at<macho::DataCommand>(fixups.command(fixupsKind)).offset = 0x7fffffff;
  EXPECT_THAT(fixups.refusal(), HasSubstr("truncated: the chained fixups"));
}

TEST(LoaderRefusal, OfATruncatedFileWhereverItEnds) {
  const Copy whole("basics.dylib");
  for (std::size_t size = 0; size < whole.bytes.size(); size += size < 2048 ? 61 : 1499) {
    Copy copy = whole;
    copy.bytes.resize(size);
    EXPECT_THAT(copy.refusal(), HasSubstr("truncated")) << size;
  }
}

TEST(LoaderRefusal, OfAnExportsTrieThatIsNoTree) {
  Copy copy("outside.dylib");
  const std::uint64_t trie = copy.at<macho::DataCommand>(copy.command(trieKind)).offset;
  // A root without an export whose single edge, "a", leads back to it.
  const std::uint8_t circle[] = {0, 1, 'a', 0, 0};
  std::memcpy(&copy.at<std::uint8_t>(trie), circle, sizeof circle);
  EXPECT_THAT(copy.refusal(), HasSubstr("comes twice to one place"));
}

TEST(LoaderRefusal, OfExportsThatAreNoAddress) {
  for (const std::uint8_t flags : std::initializer_list<std::uint8_t>{0x01, 0x08, 0x10}) {
    Copy copy("outside.dylib");
    const std::uint64_t trie = copy.at<macho::DataCommand>(copy.command(trieKind)).offset;
    const std::uint8_t single[] = {0, 1, '_', 'x', 0, 6, 2, flags, 0, 0};
    std::memcpy(&copy.at<std::uint8_t>(trie), single, sizeof single);
    EXPECT_THAT(copy.refusal(), HasSubstr("export _x with the flags"));
  }
}

/// A copy whose chained fixups can be spoiled by name.
class Fixups : public Copy {
 public:
  explicit Fixups(std::string_view name = "basics.dylib") : Copy(name) {}

  [[nodiscard]] std::uint64_t offset() {
    return at<macho::DataCommand>(command(fixupsKind)).offset;
  }
  [[nodiscard]] macho::FixupsHeader& head() { return at<macho::FixupsHeader>(offset()); }
  [[nodiscard]] std::uint64_t startsOf(unsigned segment) {
    const std::uint64_t starts = offset() + head().startsOffset;
    return starts + at<std::uint32_t>(starts + (segment + 1) * sizeof(std::uint32_t));
  }
  [[nodiscard]] macho::SegmentStarts& segment(unsigned index) {
    return at<macho::SegmentStarts>(startsOf(index));
  }
  [[nodiscard]] std::uint16_t& firstPage(unsigned index) {
    return at<std::uint16_t>(startsOf(index) + macho::segmentStartsSize);
  }
};

constexpr unsigned constantData = 1;

TEST(LoaderRefusal, OfImportFormats) {
  auto image = Image::map(fixtures::path("farAddend.dylib"));
  ASSERT_TRUE(image);
  const auto bound = (*image)->bind(fixtures::resolverOf({}));
  ASSERT_FALSE(bound);
  EXPECT_THAT(bound.error(),
              HasSubstr("import format 2 (DYLD_CHAINED_IMPORT_ADDEND) is not supported"));
  Fixups other;
  other.head().importFormat = 3;
  EXPECT_THAT(other.bindRefusal(), HasSubstr("import format 3 (DYLD_CHAINED_IMPORT_ADDEND64)"));
  Fixups compressed;
  compressed.head().nameFormat = 1;
  EXPECT_THAT(compressed.bindRefusal(), HasSubstr("compressed names"));
  Fixups later;
  later.head().version = 1;
  EXPECT_THAT(later.bindRefusal(), HasSubstr("chained fixups of version 1"));
}

TEST(LoaderRefusal, OfPointerFormats) {
  Fixups copy;
  copy.segment(constantData).pointerFormat = 12;
  EXPECT_THAT(copy.bindRefusal(),
              HasSubstr("pointer format 12 (ARM64E_USERLAND24) is not supported"));
  Fixups several;
  several.firstPage(constantData) = 0x8000;
  EXPECT_THAT(several.bindRefusal(),
              HasSubstr("a page of segment __DATA_CONST with several chains"));
}

TEST(LoaderRefusal, OfFixupsThatDoNotFit) {
  Fixups moved;
  moved.segment(constantData).segmentOffset += 0x4000;
  EXPECT_THAT(moved.bindRefusal(), HasSubstr("the fixups of segment __DATA_CONST belong to"));
  Fixups outside;
  outside.firstPage(constantData) = 0x3ffc;
  outside.segment(constantData).pageSize = 0x4000;
  EXPECT_THAT(outside.bindRefusal(), HasSubstr("leaves its page in segment __DATA_CONST"));
  Fixups many;
  many.at<std::uint32_t>(many.offset() + many.head().startsOffset) = 5;
  EXPECT_THAT(many.bindRefusal(), HasSubstr("fixups of 5 segments for an image that has 4"));
  Fixups ordinal;
  ordinal.at<std::uint8_t>(ordinal.offset() + ordinal.head().importsOffset) = 9;
  EXPECT_THAT(ordinal.bindRefusal(), HasSubstr("names library 9 of 1"));
}

TEST(LoaderRefusal, OfPointersThatLeadNowhere) {
  constexpr std::uint64_t bind = std::uint64_t{1} << 63;
  Copy unknown("basics.dylib");
  const std::uint64_t place = unknown.content("__got");
  unknown.at<std::uint64_t>(place) = bind | 999;
  EXPECT_THAT(unknown.bindRefusal(), HasSubstr("wants import 999 of 5"));
  Copy far("basics.dylib");
  far.at<std::uint64_t>(place) = 0x80000000;
  EXPECT_THAT(far.bindRefusal(), HasSubstr("leads out of the image: 0x80000000"));
  Copy bits("basics.dylib");
  bits.at<std::uint64_t>(place) |= std::uint64_t{1} << 40;
  EXPECT_THAT(bits.bindRefusal(), HasSubstr("has unknown bits"));
}

TEST(LoaderRefusal, OfAnInitialiserOutsideOfTheCode) {
  Copy copy("basics.dylib");
  copy.at<std::uint32_t>(copy.content("__init_offsets")) = 0x7fffffff;
  EXPECT_THAT(copy.bindRefusal(),
              HasSubstr("__init_offsets names an initialiser outside of the code"));
}

/// Why the spoiled copy's unwind tables cannot be registered.
std::string unwindRefusal(const Copy& copy) {
  static std::byte anything[16];
  const auto image = copy.map();
  if (!image || !(*image)->bind([](std::string_view) { return anything; })) {
    ADD_FAILURE() << "not even bound";
    return "";
  }
  const auto registered = (*image)->registerUnwind();
  return registered ? "" : registered.error();
}

TEST(LoaderRefusal, OfUnwindTables) {
  Copy version("throwing.dylib");
  version.at<std::uint32_t>(version.content("__unwind_info")) = 2;
  EXPECT_THAT(unwindRefusal(version), HasSubstr("unwind table of version 2"));
  Copy without("throwing.dylib");
  without.at<macho::SectionRecord>(without.section("__eh_frame")).name[2] = 'x';
  EXPECT_THAT(unwindRefusal(without),
              testing::AllOf(HasSubstr("has a DWARF frame"), HasSubstr("no section __eh_frame")));
  Copy odd("throwing.dylib");
  odd.at<char>(odd.content("__eh_frame") + 9) = 'q';
  EXPECT_THAT(unwindRefusal(odd), HasSubstr("common rules of another kind"));
}

/// Loading ends with an image or a text, also when any one byte is spoiled.
TEST(LoaderRefusal, NeverReadsBeyondASpoiledFile) {
  const Copy whole("basics.dylib");
  Copy copy = whole;
  const std::uint64_t fixups = copy.at<macho::DataCommand>(copy.command(fixupsKind)).offset;
  const std::uint64_t commands = copy.at<macho::Header>(0).commandsSize;
  static std::byte anything[16];
  unsigned refused = 0;
  const auto spoil = [&](std::uint64_t offset, unsigned value) {
    copy = whole;
    copy.at<std::uint8_t>(offset) ^= static_cast<std::uint8_t>(value);
    const auto image = copy.map();
    if (!image || !(*image)->bind([](std::string_view) { return anything; })) {
      ++refused;
    }
  };
  for (std::uint64_t offset = 0; offset < commands; offset += 7) {
    spoil(offset, 0xff);
  }
  for (std::uint64_t offset = 0; offset < 500; offset += 3) {
    spoil(fixups + offset, 0x81);
  }
  EXPECT_GT(refused, 100U);
}

}  // namespace
}  // namespace tinmac
