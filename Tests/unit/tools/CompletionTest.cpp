#include "VirtualMac/Tools/Completion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>

namespace virtualmac {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A program with something of each sort.
class Completion : public testing::Test {
 protected:
  Completion() {
    program.fallthrough();
    program.add_option("--root", root)->type_name("FOLDER");
    CLI::App* paint = program.add_subcommand("paint", "Paints");
    paint->add_option("colours", words)->type_name("COLOUR");
    CLI::Option* fast = paint->add_flag("--fast");
    paint->add_flag("--slow")->excludes(fast);
    paint->add_option("--kinds", kindsGiven)
        ->delimiter(',')
        ->check(CLI::IsMember({"oil", "ink", "gouache", "tempera"}));
    CLI::App* shop = program.add_subcommand("shop", "Buys");
    shop->add_subcommand("brush", "Buys one");
  }

  std::vector<std::string> offered(const std::vector<std::string>& typed) {
    std::vector<std::string> found;
    for (const Offer& offer : offersFor(program, typed, kinds).words) found.push_back(offer.word);
    return found;
  }

  std::string root;
  std::vector<std::string> words;
  std::vector<std::string> kindsGiven;
  CLI::App program{"A test", "test"};
  ValueKinds kinds{{"COLOUR",
                    [](std::span<const std::string> before) {
                      Offers offers;
                      offers.words = {{before.empty() ? "red" : before.back() + "dish", ""}};
                      return offers;
                    }},
                   {"FOLDER", [](std::span<const std::string>) {
                      return Offers{.words = {}, .folders = true};
                    }}};
};

TEST_F(Completion, OffersCommandsAndTheirCommands) {
  EXPECT_THAT(offered({""}), ElementsAre("paint", "shop"));
  EXPECT_THAT(offered({"p"}), ElementsAre("paint"));
  EXPECT_THAT(offered({"shop", ""}), ElementsAre("brush"));
  EXPECT_THAT(offered({"nonsense", "p"}), ElementsAre("paint"));
}

TEST_F(Completion, OffersOptionsOfTheCommandAndOfThoseAroundIt) {
  EXPECT_THAT(offered({"paint", "-"}),
              ElementsAre("--help", "--fast", "--slow", "--kinds", "--root"));
  EXPECT_THAT(offered({"-"}), ElementsAre("--help", "--root"));
}

TEST_F(Completion, LeavesOutOptionsThatWereGivenOrAreExcluded) {
  EXPECT_THAT(offered({"paint", "--fast", "--"}), ElementsAre("--help", "--kinds", "--root"));
}

TEST_F(Completion, OffersAValueInItsPlaceOnly) {
  EXPECT_THAT(offered({"paint", "--kinds", ""}), ElementsAre("oil", "ink", "gouache", "tempera"));
  EXPECT_THAT(offered({"paint", "--kinds=i"}), ElementsAre("--kinds=ink"));
  EXPECT_THAT(offered({"paint", "--kinds", "oil", "r"}), ElementsAre("red"));
  EXPECT_TRUE(offersFor(program, std::vector<std::string>{"--root", ""}, kinds).folders);
}

TEST_F(Completion, GoesOnInAList) {
  EXPECT_THAT(offered({"paint", "--kinds", "oil,i"}), ElementsAre("oil,ink"));
}

TEST_F(Completion, AsksAKindWithTheWordsBefore) {
  EXPECT_THAT(offered({"paint", "blue", ""}), ElementsAre("bluedish"));
}

TEST_F(Completion, TakesAllForPlainWordsAfterTwoDashes) {
  EXPECT_THAT(offered({"paint", "--", "--fast", ""}), ElementsAre("--fastdish"));
  EXPECT_THAT(offered({"paint", "--", "--fa"}), IsEmpty());
}

}  // namespace

}  // namespace virtualmac
