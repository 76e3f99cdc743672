#include "VirtualMac/Machine/Bounds.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

std::string nested(std::size_t depth, const std::string& open = "[",
                   const std::string& close = "]") {
  std::string text;
  for (std::size_t level = 0; level < depth; ++level) text += open;
  for (std::size_t level = 0; level < depth; ++level) text += close;
  return text;
}

TEST(BoundsTest, JSONIsTakenAsDeepAsStatedAndNoDeeper) {
  EXPECT_EQ(jsonDefect(nested(512)), std::nullopt);
  EXPECT_EQ(jsonDefect(nested(513)), "nested more than 512 deep");
  EXPECT_EQ(jsonDefect(nested(2'000'000)), "nested more than 512 deep");
  EXPECT_EQ(jsonDefect(nested(511, R"({"a":)", "}")), "not JSON at byte 2556");
  EXPECT_EQ(jsonDefect(nested(512, R"({"a":[)", "]}")), "nested more than 512 deep");
  EXPECT_EQ(jsonDefect('[' + nested(511) + ',' + nested(511) + ']'), std::nullopt)
      << "what is side by side is not deep";
}

TEST(BoundsTest, ANumberOutOfRangeIsToldWithItsByte) {
  EXPECT_EQ(jsonDefect(R"({"a": 1e999})"), "a number out of range at byte 11: 1e999");
  EXPECT_EQ(jsonDefect(R"({"a": 1e308})"), std::nullopt);
}

TEST(BoundsTest, NothingMayFollowTheTextBehindAZeroByte) {
  using namespace std::string_view_literals;
  EXPECT_EQ(jsonDefect("{}\0"sv), "not JSON at byte 3");
  EXPECT_EQ(jsonDefect("{} \0 {\"lid\": false}"sv), "not JSON at byte 4");
  EXPECT_EQ(jsonDefect("{\"a\": \"\0\"}"sv), "not JSON at byte 8");
  EXPECT_EQ(jsonDefect("{\"a\": \"\\u0000\"}"sv), std::nullopt);
}

class TextFileTest : public testing::Test {
 public:
  ~TextFileTest() override { std::filesystem::remove(path); }

 protected:
  void write(std::size_t size) const {
    std::ofstream(path, std::ios::binary) << std::string(size, ' ');
  }
  const std::string path =
      (std::filesystem::temp_directory_path() / ("bounds-" + std::to_string(::getpid()))).string();
};

TEST_F(TextFileTest, AFileIsReadUpToTheBoundAndRefusedBeyondIt) {
  write(bounds::longestText);
  EXPECT_EQ(readTextFile(path).value_or("").size(), bounds::longestText);
  write(bounds::longestText + 1);
  EXPECT_EQ(readTextFile(path).error(), path + ": larger than 1048576 bytes");
  EXPECT_EQ(readTextFile("/dev/zero").error(), "/dev/zero: larger than 1048576 bytes");
}

TEST_F(TextFileTest, AnEmptyFileIsReadAndADirectoryIsNot) {
  write(0);
  EXPECT_EQ(readTextFile(path), "");
  EXPECT_EQ(readTextFile("/").error(), "/: cannot be read");
  EXPECT_EQ(readTextFile("/no/such/file").error(), "/no/such/file: cannot be read");
}

TEST(BoundsTest, AProfileIsRefusedWithTheBoundItBreaks) {
  const auto errorOf = [](const std::string& text) {
    const auto parsed = parseProfile(text, "mine.json");
    return parsed ? std::string() : parsed.error();
  };
  EXPECT_EQ(errorOf(R"({"battery": {"startPercent": 1e999}})"),
            "mine.json: a number out of range at byte 34: 1e999");
  EXPECT_EQ(errorOf(R"({"smc": )" + nested(20'000) + '}'), "mine.json: nested more than 512 deep");
  const auto offers = [](const std::string& limits) {
    return R"({"powerUI": {"offeredLimits": )" + limits + "}}";
  };
  EXPECT_EQ(errorOf(offers(nested(16))), "");
  EXPECT_EQ(errorOf(offers(nested(17))),
            "mine.json: powerUI.offeredLimits must be nested at most 16 deep");
  EXPECT_EQ(errorOf(offers('"' + std::string(16'382, 'x') + '"')), "");
  EXPECT_EQ(errorOf(offers('"' + std::string(16'383, 'x') + '"')),
            "mine.json: powerUI.offeredLimits must be at most 16384 bytes");
}

// The journal gives only the size of a file that it does not compare, and copies nothing deep.
TEST(BoundsTest, TheJournalTellsAFileThatIsTooDeepOrTooLongByItsSize) {
  const FileCopy before(R"({"chargeLimit":80})");
  const auto told = [](const FileCopy& earlier, const FileCopy& after) {
    return changeOfFile("a", earlier, after).text();
  };
  EXPECT_EQ(told(before, FileCopy(R"({"a":)" + nested(511) + '}')),
            "a replaced: a=" + nested(511) + " chargeLimit gone");
  EXPECT_EQ(told(before, FileCopy(R"({"a":)" + nested(20'000) + '}')), "a replaced: 40006 bytes");
  EXPECT_EQ(told(FileCopy(R"({"a":)" + nested(20'000) + '}'), before),
            "a replaced: chargeLimit=80");
  const std::string filled = '{' + std::string(bounds::longestCompared - 2, ' ') + '}';
  EXPECT_EQ(told(before, FileCopy(filled)), "a replaced: chargeLimit gone");
  EXPECT_EQ(told(before, FileCopy(filled + ' ')), "a replaced: 1048577 bytes");
}

TEST(BoundsTest, AnAssertionWithAnEndlessTimeOutIsHeldForACentury) {
  Bench bench;
  std::uint32_t id = 0;
  const korvel::PropertyValue::Dictionary properties{{"AssertType", "PreventUserIdleSystemSleep"},
                                                     {"AssertName", "for ever"},
                                                     {"TimeoutAction", "TimeoutActionRelease"},
                                                     {"TimeoutSeconds", 1e300}};
  EXPECT_EQ(bench.helper->assertions.createWithProperties(properties, id), korvel::kernSuccess);
  bench.mac.advance(1);
  EXPECT_EQ(bench.mac.power.assertions().size(), 1U);
}

}  // namespace
}  // namespace virtualmac
