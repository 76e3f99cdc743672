#include "VirtualMac/Web/PagePlace.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <string>

namespace virtualmac {

namespace {

class PagePlaceTest : public testing::Test {
 protected:
  PagePlaceTest() {
    std::string name = (std::filesystem::temp_directory_path() / "page-place-XXXXXX").string();
    EXPECT_NE(::mkdtemp(name.data()), nullptr);
    root.path = name;
  }
  void TearDown() override { std::filesystem::remove_all(root.path); }

  [[nodiscard]] std::string file() const { return root.path + "/page.token"; }
  [[nodiscard]] std::string kept() const {
    std::ifstream text(file(), std::ios::binary);
    return {std::istreambuf_iterator<char>(text), {}};
  }
  [[nodiscard]] std::string token() const {
    const auto made = pageToken(root);
    EXPECT_TRUE(made) << made.error();
    return made.value_or("");
  }

  RootDirectory root;
};

}  // namespace

TEST_F(PagePlaceTest, ATokenHas128BitsAndIsKeptForItsOwner) {
  const std::string first = token();
  EXPECT_EQ(first.size(), 32U);
  EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(kept(), first);
  struct stat facts{};
  ASSERT_EQ(::stat(file().c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777, 0600U);
  EXPECT_EQ(token(), first);
}

TEST_F(PagePlaceTest, EveryRootHasATokenOfItsOwn) {
  const std::string first = token();
  std::filesystem::remove(file());
  EXPECT_NE(token(), first);
}

TEST_F(PagePlaceTest, ATokenThatOthersCouldReadIsReplaced) {
  const std::string first = token();
  ASSERT_EQ(::chmod(file().c_str(), 0644), 0);
  EXPECT_NE(token(), first);
  struct stat facts{};
  ASSERT_EQ(::stat(file().c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777, 0600U);
}

TEST_F(PagePlaceTest, AFileThatHoldsNoTokenIsReplaced) {
  for (const char* text : {"", "0123", "0123456789abcdef0123456789abcdeX", "\n"}) {
    const std::string before = token();
    std::ofstream(file(), std::ios::binary | std::ios::trunc) << text;
    const std::string made = token();
    EXPECT_EQ(made.size(), 32U);
    EXPECT_NE(made, before);
    EXPECT_EQ(kept(), made);
  }
}

// Another program may have put the link there.
TEST_F(PagePlaceTest, ALinkInTheTokensPlaceIsRefused) {
  const std::string target = root.path + "/precious";
  std::ofstream(target) << "precious";
  std::filesystem::create_symlink(target, file());
  const auto made = pageToken(root);
  ASSERT_FALSE(made);
  EXPECT_TRUE(made.error().starts_with(file())) << made.error();
  std::ifstream text(target);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(text), {}), "precious");
}

TEST_F(PagePlaceTest, APortThatIsTakenIsNamedWithARemedy) {
  const auto first = openPagePlace(0);
  ASSERT_TRUE(first) << first.error();
  EXPECT_GT(first->port, 0);
  EXPECT_EQ(portOf(first->socket), first->port);
  const auto second = openPagePlace(first->port);
  ASSERT_FALSE(second);
  EXPECT_EQ(second.error(),
            "port " + std::to_string(first->port) +
                " is taken; choose another with --web=PORT, or --web=0 for any that is free");
}

TEST_F(PagePlaceTest, WhatIsNoSocketHasNoPort) { EXPECT_EQ(portOf(Descriptor()), std::nullopt); }

TEST_F(PagePlaceTest, TheNextPageWaitsForTheEndOfTheOneBefore) {
  auto first = claimPage(root, 0);
  ASSERT_TRUE(first);
  const auto refused = claimPage(root, 0.05);
  ASSERT_FALSE(refused);
  EXPECT_TRUE(refused.error().ends_with(root.path)) << refused.error();
  auto second = std::async(std::launch::async, [this] { return claimPage(root, 60).has_value(); });
  *first = Descriptor();
  EXPECT_TRUE(second.get());
}

TEST_F(PagePlaceTest, TheLinkNamesThisComputerAndTheTokenBehindAHash) {
  EXPECT_EQ(pageLink(7613, "abc"), "http://127.0.0.1:7613/#token=abc");
}

}  // namespace virtualmac
