#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "Tests/process/Mac.h"

namespace processtests {

TEST(RootTest, AnEmptyRootIsRefused) {
  for (const char* program : {"virtual-mac", "korvel-app"})
    expectSays(run(program, {"--root", "", program[0] == 'v' ? "status" : "ping"}), 2,
               {"--root: an empty text is not allowed"});
  expectSays(run("virtual-mac", {"--json", "--root", "", "status"}), 2,
             {R"("ok":false)", "--root"});
}

TEST(RootTest, ARootThatWasOpenToOthersIsClosedToThemAndThatIsSaid) {
  const Mac mac;
  const auto open = [&mac] {
    ASSERT_EQ(mac.command({"down"}).status, 0);
    std::filesystem::permissions(mac.root(), std::filesystem::perms{0755});
  };
  const std::string words = mac.root() + " was open to others; now it is open to its owner only";
  open();
  const Result up = mac.command({"up"});
  EXPECT_EQ(up.status, 0);
  EXPECT_EQ(up.err, "virtual-mac: " + words + "\n");
  EXPECT_EQ(std::filesystem::status(mac.root()).permissions(), std::filesystem::perms{0700});
  open();
  const Result again = mac.command({"--json", "up"});
  EXPECT_EQ(nlohmann::json::parse(again.out).at("note"), words);
  EXPECT_EQ(again.err, "");
  EXPECT_EQ(mac.command({"down"}).status, 0);
}

// The default root's place is known to everybody, who may have been there first.
TEST(RootTest, ADefaultRootThatIsNotTheUsersAloneIsNotUsed) {
  const Mac mac;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else changes the environment
  const char* before = std::getenv("XDG_RUNTIME_DIR");
  const std::optional<std::string> kept =
      before ? std::optional<std::string>(before) : std::nullopt;
  const std::string place = mac.root() + "/runtime";
  std::filesystem::create_directory(place);
  std::filesystem::create_directory_symlink(mac.root(), place + "/virtual-mac");
  ASSERT_EQ(::setenv("XDG_RUNTIME_DIR", place.c_str(), 1), 0);
  const std::string words = place + "/virtual-mac is a link; remove it";
  expectSays(run("virtual-mac", {"up"}), 1, {words});
  expectSays(run("virtual-mac", {"status"}), 1, {words});
  expectSays(run("virtual-mac", {"journal"}), 1, {words});
  expectSays(run("virtual-mac", {"timeline", place + "/out.svg"}), 1, {words});
  expectSays(run("korvel-app", {"ping"}), 1, {words});
  expectSays(run("virtual-mac", {"--root", place + "/virtual-mac", "status"}), 0, {"newer-keys"});
  std::filesystem::remove(place + "/virtual-mac");
  expectSays(run("virtual-mac", {"up"}), 0, {"root " + place + "/virtual-mac"});
  EXPECT_EQ(std::filesystem::status(place + "/virtual-mac").permissions(),
            std::filesystem::perms{0700});
  expectSays(run("virtual-mac", {"down"}), 0, {});
  kept ? ::setenv("XDG_RUNTIME_DIR", kept->c_str(), 1) : ::unsetenv("XDG_RUNTIME_DIR");
}

}  // namespace processtests
