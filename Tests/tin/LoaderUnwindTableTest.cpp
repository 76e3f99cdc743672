#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>
#include <vector>

#include "TinMac/Loader/UnwindTable.h"

namespace tinmac {
namespace {

using Words = std::vector<std::uint32_t>;

constexpr std::uint32_t frame = 0x04000000;
constexpr std::uint32_t framelessOf32 = 0x02002000;
constexpr std::uint32_t dwarf = 0x03000000;

constexpr std::uint32_t pair(std::uint32_t low, std::uint32_t high) { return low | high << 16; }

/// A table with a regular page (three functions) and a compressed one (three functions, one common
/// encoding and one of the page), in words of four bytes.
Words twoPages() {
  return {
      1,
      28,
      1,
      32,
      2,
      40,
      3,      // the header
      frame,  // byte 28: the common encoding
      0x8000,
      0x8008,  // byte 32: where the personalities' addresses are
      0x100,
      92,
      76,  // byte 40: the index
      0x400,
      124,
      84,  //
      0x600,
      0,
      92,  //
      0x140,
      0x7000,  // byte 76: language data of the first page
      0x420,
      0x7100,  // byte 84: of the second
      2,
      pair(8, 3),  // byte 92: the regular page
      0x100,
      frame | 0x1f,  //
      0x140,
      0x50000000 | frame,  //
      0x180,
      0,  //
      3,
      pair(12, 3),
      pair(24, 1),  // byte 124: the compressed page
      0x00000000,
      0x01000020,
      0x00000080,                          //
      0x60000000 | framelessOf32 | 0x103,  // the page's own encoding
  };
}

std::vector<UnwoundRange> read(const Words& words) {
  return readUnwindTable(Bytes(std::as_bytes(std::span(words)), "the table"));
}

std::string refusal(const Words& words) {
  try {
    static_cast<void>(read(words));
  } catch (const Refused& refused) {
    return refused.what();
  }
  return "";
}

TEST(LoaderUnwindTable, ReadsRegularAndCompressedPages) {
  const auto ranges = read(twoPages());
  ASSERT_EQ(ranges.size(), 5U);
  const std::uint64_t limits[][2] = {
      {0x100, 0x140}, {0x140, 0x180}, {0x400, 0x420}, {0x420, 0x480}, {0x480, 0x600}};
  for (std::size_t index = 0; index < ranges.size(); ++index) {
    EXPECT_EQ(ranges[index].start, limits[index][0]);
    EXPECT_EQ(ranges[index].end, limits[index][1]);
  }
  EXPECT_EQ(ranges[0].encoding.raw, frame | 0x1f);
  EXPECT_EQ(ranges[2].encoding.raw, frame);
  EXPECT_EQ(ranges[3].encoding.raw, 0x60000000 | framelessOf32 | 0x103);
  EXPECT_EQ(ranges[3].encoding.stackSize(), 32U);
}

TEST(LoaderUnwindTable, FindsPersonalitiesAndLanguageData) {
  const auto ranges = read(twoPages());
  ASSERT_EQ(ranges.size(), 5U);
  EXPECT_EQ(ranges[0].personalitySlot, std::nullopt);
  EXPECT_EQ(ranges[0].languageData, std::nullopt);
  EXPECT_EQ(ranges[1].personalitySlot, 0x8000U);
  EXPECT_EQ(ranges[1].languageData, 0x7000U);
  EXPECT_EQ(ranges[3].personalitySlot, 0x8008U);
  EXPECT_EQ(ranges[3].languageData, 0x7100U);
}

TEST(LoaderUnwindTable, LeavesOutWhatHasNoPage) {
  Words words = twoPages();
  words[14] = 0;
  const auto ranges = read(words);
  ASSERT_EQ(ranges.size(), 2U);
  EXPECT_EQ(ranges[1].end, 0x180U);
}

TEST(LoaderUnwindTable, RefusesWhatItDoesNotKnow) {
  const auto spoiled = [](std::size_t word, std::uint32_t value) {
    Words words = twoPages();
    words.at(word) = value;
    return refusal(words);
  };
  using testing::HasSubstr;
  EXPECT_THAT(spoiled(0, 2), HasSubstr("unwind table of version 2"));
  EXPECT_THAT(spoiled(23, 4), HasSubstr("unwind page of the kind 4"));
  EXPECT_THAT(spoiled(25, 0x480), HasSubstr("not in order"));
  EXPECT_THAT(spoiled(26, 0x05000000), HasSubstr("unwind encoding 0x5000000"));
  EXPECT_THAT(spoiled(26, 0x84000000), HasSubstr("unwind encoding 0x84000000"));
  EXPECT_THAT(spoiled(26, frame | 0x20), HasSubstr("unwind encoding 0x4000020"));
  EXPECT_THAT(spoiled(26, frame | 0x1000), HasSubstr("unwind encoding 0x4001000"));
  EXPECT_THAT(spoiled(28, 0x70000000 | frame), HasSubstr("personality 3 of 2"));
  EXPECT_THAT(spoiled(19, 0x150), HasSubstr("0x140 has no language data"));
  EXPECT_THAT(spoiled(35, 0x02000020), HasSubstr("has encoding 2 of 2"));
  EXPECT_THAT(spoiled(6, 300), HasSubstr("truncated: the table"));
}

TEST(LoaderUnwindTable, KnowsWhereADwarfFrameIs) {
  const UnwindEncoding encoding{dwarf | 0x1234};
  EXPECT_EQ(encoding.mode(), UnwindEncoding::Mode::Dwarf);
  EXPECT_EQ(encoding.dwarfOffset(), 0x1234U);
}

TEST(LoaderUnwindTable, EndsBeforeItsEnd) {
  const Words whole = twoPages();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const Words words(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_THAT(refusal(words), testing::HasSubstr("truncated")) << size;
  }
}

}  // namespace
}  // namespace tinmac
