#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "Tests/tin/LoaderFixtures.h"
#include "TinMac/Loader/MachO.h"

namespace tinmac {
namespace {

using fixtures::Copy;
using fixtures::function;
using fixtures::load;
using fixtures::variable;

int fromAnywhere(int value) { return value + 100; }
int perhaps(int value) { return value; }

template <typename Function>
void* addressOf(Function* function) {
  return std::bit_cast<void*>(function);
}

std::unique_ptr<Image> loadBasics(void* perhapsAddress = nullptr) {
  static const std::unique_ptr<Image> outside = load("outside.dylib", fixtures::resolverOf({}));
  return load("basics.dylib", [perhapsAddress](std::string_view name) -> void* {
    if (name == "_fromAnywhere") {
      return addressOf(fromAnywhere);
    }
    if (name == "_sharedFunction") {
      return addressOf(perhaps);
    }
    return name == "_perhaps" ? perhapsAddress : outside->symbol(name);
  });
}

/// Whether the system says that the address may be written. What may be executed it does not tell
/// under emulation.
bool isWritable(const void* address) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    std::istringstream fields(line);
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    char dash = 0;
    std::string permissions;
    fields >> std::hex >> begin >> dash >> end >> permissions;
    const auto wanted = std::bit_cast<std::uintptr_t>(address);
    if (begin <= wanted && wanted < end) {
      return permissions.at(1) == 'w';
    }
  }
  ADD_FAILURE() << "no mapping";
  return false;
}

TEST(LoaderImage, RunsAFunctionOfTheImage) {
  const auto image = loadBasics();
  ASSERT_TRUE(image);
  EXPECT_EQ(function<int(int, int)>(*image, "_add")(20, 22), 42);
}

TEST(LoaderImage, CallsImportsOfALibraryAndOfNobodyInParticular) {
  const auto image = loadBasics();
  ASSERT_TRUE(image);
  EXPECT_EQ(function<int(int)>(*image, "_useImports")(5), 2 * 5 + 5 + 100);
}

TEST(LoaderImage, PointsIntoItself) {
  const auto image = loadBasics();
  ASSERT_TRUE(image);
  int& counter = variable<int>(*image, "_counter");
  EXPECT_EQ(counter, 40);
  EXPECT_EQ(variable<int*>(*image, "_constantPointer"), &counter);
  EXPECT_EQ(variable<int*>(*image, "_changeablePointer"), &counter);
  const auto hidden = function<int**(int)>(*image, "_hiddenPointer");
  EXPECT_EQ(**hidden(0), 7);
  EXPECT_EQ(*hidden(1), &variable<int[1000]>(*image, "_blank")[999]);
  EXPECT_EQ(**hidden(1), 0);
  EXPECT_EQ((variable<int (*[2])(int, int)>(*image, "_functionTable")[1](3, 4)), 7);
}

TEST(LoaderImage, KeepsTheHighestByteOfAPointer) {
  const auto image = loadBasics();
  ASSERT_TRUE(image);
  const auto pointer = variable<std::uint64_t>(*image, "_taggedPointer");
  EXPECT_EQ(pointer >> 56, 0xabU);
  EXPECT_EQ(pointer & 0x00ffffffffffffff,
            std::bit_cast<std::uint64_t>(&variable<int>(*image, "_tagged")));
}

TEST(LoaderImage, AddsToAnImportsAddress) {
  const auto image = loadBasics();
  ASSERT_TRUE(image);
  EXPECT_STREQ(variable<char*>(*image, "_fifthByte"), "56789abcde");
}

TEST(LoaderImage, LeavesAWeakImportNullOrBindsIt) {
  const auto without = loadBasics();
  const auto with = loadBasics(addressOf(perhaps));
  ASSERT_TRUE(without && with);
  EXPECT_EQ(function<int()>(*without, "_hasPerhaps")(), 0);
  EXPECT_EQ(variable<void*>(*without, "_perhapsPointer"), nullptr);
  EXPECT_EQ(function<int()>(*with, "_hasPerhaps")(), 1);
  EXPECT_EQ(variable<void*>(*with, "_perhapsPointer"), addressOf(perhaps));
}

TEST(LoaderImage, UsesItsOwnSharedDefinition) {
  const auto image = loadBasics();
  ASSERT_TRUE(image);
  EXPECT_EQ(variable<void*>(*image, "_sharedPointer"), image->symbol("_sharedFunction"));
}

TEST(LoaderImage, ListsEveryMissingSymbolWithItsLibrary) {
  auto image = Image::map(fixtures::path("basics.dylib"));
  ASSERT_TRUE(image);
  const auto bound = (*image)->bind(fixtures::resolverOf({}));
  ASSERT_FALSE(bound);
  EXPECT_THAT(bound.error(),
              testing::AllOf(testing::HasSubstr("basics.dylib: nobody has these symbols:"),
                             testing::HasSubstr("\n  _outsideTwice from /usr/lib/outside.dylib"),
                             testing::HasSubstr("\n  _outsideBytes from /usr/lib/outside.dylib"),
                             testing::HasSubstr("\n  _fromAnywhere from any image")));
  EXPECT_THAT(bound.error(), testing::Not(testing::HasSubstr("_perhaps")));
}

TEST(LoaderImage, RunsInitialisersInOrderAndWithoutArguments) {
  const auto image = loadBasics();
  ASSERT_TRUE(image);
  EXPECT_STREQ(variable<char[8]>(*image, "_order"), "");
  image->runInitialisers();
  EXPECT_STREQ(variable<char[8]>(*image, "_order"), "ab");
}

TEST(LoaderImage, RunsInitialisersThatAreGivenAsPointers) {
  Copy copy("basics.dylib");
  copy.at<macho::SectionRecord>(copy.section("__later")).flags = macho::sectionInitialiserPointers;
  const auto image = load(copy.map(), [](std::string_view) { return addressOf(fromAnywhere); });
  ASSERT_TRUE(image);
  image->runInitialisers();
  EXPECT_THAT(variable<char[8]>(*image, "_order"),
              testing::UnorderedElementsAre('a', 'b', 'c', 0, 0, 0, 0, 0));
}

TEST(LoaderImage, ExportsWhatIsVisible) {
  const auto image = loadBasics();
  ASSERT_TRUE(image);
  EXPECT_NE(image->symbol("_add"), nullptr);
  EXPECT_EQ(image->symbol("_ad"), nullptr);
  EXPECT_EQ(image->symbol("_hiddenFunction"), nullptr);
  EXPECT_EQ(image->symbol("_fromAnywhere"), nullptr);
}

TEST(LoaderImage, ExportsTheSameFromTheSymbolTable) {
  constexpr std::uint32_t trieKind = 0x80000033;
  constexpr std::uint32_t idleKind = 0x26;
  Copy copy("basics.dylib");
  copy.at<macho::Command>(copy.command(trieKind)).kind = idleKind;
  const auto image = load(copy.map(), [](std::string_view) { return addressOf(fromAnywhere); });
  ASSERT_TRUE(image);
  EXPECT_EQ(function<int(int, int)>(*image, "_add")(20, 22), 42);
  EXPECT_EQ(image->symbol("_hiddenFunction"), nullptr);
  EXPECT_EQ(image->symbol("_fromAnywhere"), nullptr);
}

TEST(LoaderImage, GivesSegmentsTheirProtections) {
  auto image = Image::map(fixtures::path("basics.dylib"));
  ASSERT_TRUE(image);
  const Image& mapped = **image;
  EXPECT_TRUE(isWritable(mapped.symbol("_constantPointer")));
  ASSERT_TRUE((*image)->bind([](std::string_view) { return addressOf(fromAnywhere); }));
  ASSERT_TRUE((*image)->protect());
  EXPECT_FALSE(isWritable(mapped.header()));
  EXPECT_FALSE(isWritable(mapped.symbol("_add")));
  EXPECT_FALSE(isWritable(mapped.symbol("_constantPointer")));
  EXPECT_TRUE(isWritable(mapped.symbol("_counter")));
  EXPECT_TRUE(isWritable(mapped.symbol("_blank")));
  EXPECT_EQ(function<int(int, int)>(mapped, "_add")(1, 2), 3);
}

TEST(LoaderImage, LiesAtItsPlaceOrNowhere) {
  auto* place = std::bit_cast<std::byte*>(std::uintptr_t{0x61'0000'0000});
  const auto image = Image::map(fixtures::path("outside.dylib"), place);
  ASSERT_TRUE(image);
  EXPECT_EQ((*image)->header(), place);
  const auto second = Image::map(fixtures::path("outside.dylib"), place);
  ASSERT_FALSE(second);
  EXPECT_THAT(second.error(), testing::HasSubstr("outside.dylib: something else is at its place"));
}

TEST(LoaderImage, FindsSections) {
  const auto image = loadBasics();
  ASSERT_TRUE(image);
  const ImageSection* later = image->section("__DATA", "__later");
  ASSERT_NE(later, nullptr);
  EXPECT_EQ(later->size, sizeof(void*));
  EXPECT_EQ(image->section("__TEXT", "__later"), nullptr);
}

TEST(LoaderImage, TakesStepsOnceAndInTurn) {
  auto image = Image::map(fixtures::path("outside.dylib"));
  ASSERT_TRUE(image);
  EXPECT_FALSE((*image)->protect());
  EXPECT_FALSE((*image)->registerUnwind());
  EXPECT_TRUE((*image)->bind(fixtures::resolverOf({})));
  const auto again = (*image)->bind(fixtures::resolverOf({}));
  ASSERT_FALSE(again);
  EXPECT_THAT(again.error(), testing::HasSubstr("out of its turn"));
}

TEST(LoaderImage, StartsAProgram) {
  const auto image =
      load("program", fixtures::resolverOf({{"_fromAnywhere", addressOf(fromAnywhere)}}));
  ASSERT_TRUE(image);
  const auto main = std::bit_cast<int (*)(int, char**)>(image->entry());
  ASSERT_NE(main, nullptr);
  char* arguments[] = {nullptr};
  EXPECT_EQ(main(1, arguments), 41 + 1 + 100);
  EXPECT_EQ(image->symbol("__mh_execute_header"), image->header());
}

TEST(LoaderImage, ReadsPointersThatAreCountedFromTheHeader) {
  constexpr std::uint32_t fixupsKind = 0x80000034;
  constexpr std::uint64_t linkedFor = 0x100000000;
  Copy copy("program");
  const std::uint64_t fixups = copy.at<macho::DataCommand>(copy.command(fixupsKind)).offset;
  const std::uint64_t starts = fixups + copy.at<macho::FixupsHeader>(fixups).startsOffset;
  for (unsigned index = 0; index < copy.at<std::uint32_t>(starts); ++index) {
    const auto offset = copy.at<std::uint32_t>(starts + (index + 1) * sizeof(std::uint32_t));
    if (offset != 0) {
      auto& format = copy.at<macho::SegmentStarts>(starts + offset).pointerFormat;
      ASSERT_EQ(format, macho::pointerPlain);
      format = macho::pointerOffset;
    }
  }
  copy.at<std::uint64_t>(copy.content("__data") + 8) -= linkedFor;
  const auto image =
      load(copy.map(), fixtures::resolverOf({{"_fromAnywhere", addressOf(fromAnywhere)}}));
  ASSERT_TRUE(image);
  EXPECT_EQ(*variable<int*>(*image, "_answerPointer"), 41);
}

}  // namespace
}  // namespace tinmac
