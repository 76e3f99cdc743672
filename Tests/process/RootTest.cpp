#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "Tests/process/Mac.h"

namespace processtests {

namespace {

// NOLINTBEGIN(concurrency-mt-unsafe): the test has one thread
/// Sets the directory in which started programs look for their default root.
class RuntimeDirectory {
 public:
  explicit RuntimeDirectory(const std::string& path) {
    if (const char* before = std::getenv(name)) kept = before;
    ::setenv(name, path.c_str(), 1);
  }
  ~RuntimeDirectory() { kept ? ::setenv(name, kept->c_str(), 1) : ::unsetenv(name); }
  RuntimeDirectory(const RuntimeDirectory&) = delete;
  RuntimeDirectory& operator=(const RuntimeDirectory&) = delete;

 private:
  static constexpr const char* name = "XDG_RUNTIME_DIR";
  std::optional<std::string> kept;
};
// NOLINTEND(concurrency-mt-unsafe)

}  // namespace

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

// Everybody knows the default root's path, so another user may have created it first.
TEST(RootTest, ADefaultRootThatIsNotTheUsersAloneIsNotUsed) {
  const Mac mac;
  const std::string place = mac.root() + "/runtime";
  std::filesystem::create_directory(place);
  std::filesystem::create_directory_symlink(mac.root(), place + "/virtual-mac");
  const RuntimeDirectory known(place);
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
}

}  // namespace processtests
