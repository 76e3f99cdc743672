#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "Tests/process/Mac.h"

namespace processtests {

namespace {

// NOLINTBEGIN(concurrency-mt-unsafe): the test has one thread
/// Sets a variable for the programs that are started while it lives.
class Variable {
 public:
  Variable(const char* variable, const std::string& value) : name(variable) {
    if (const char* before = std::getenv(name)) kept = before;
    ::setenv(name, value.c_str(), 1);
  }
  ~Variable() { kept ? ::setenv(name, kept->c_str(), 1) : ::unsetenv(name); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* name;
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
  const Variable none("VIRTUAL_MAC_ROOT", "");
  const Variable known("XDG_RUNTIME_DIR", place);
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

TEST(RootTest, AVariableNamesTheRootWhereTheCommandDoesNot) {
  const Mac mac;
  const Variable root("VIRTUAL_MAC_ROOT", mac.root());
  expectSays(run("virtual-mac", {"status"}), 0, {"newer-keys"});
  expectSays(run("korvel-app", {"ping"}), 0, {"helper "});
  expectSays(run("virtual-mac", {"log"}), 0, {"KorvelHelper starting"});
  expectSays(run("virtual-mac", {"--root", mac.root() + "/none", "status"}), 1,
             {"no virtual Mac is up in " + mac.root() + "/none (start one"});
  expectSays(run("virtual-mac", {"--help"}), 0, {"$VIRTUAL_MAC_ROOT"});
  expectSays(run("korvel-app", {"--help"}), 0, {"$VIRTUAL_MAC_ROOT"});
}

TEST(RootTest, AVariableThatCannotBeUsedIsNamedInTheError) {
  const Mac mac;
  const auto expectNamed = [](const std::string& value, const std::vector<std::string>& words) {
    const Variable root("VIRTUAL_MAC_ROOT", value);
    expectSays(run("virtual-mac", words), 1, {value, "(VIRTUAL_MAC_ROOT)"});
  };
  writeFile(mac.root() + "/file", "");
  expectNamed(mac.root() + "/file", {"up"});
  expectNamed(mac.root() + "/file", {"status"});
  expectNamed("/proc/nowhere", {"up"});
  expectNamed("/tmp/korvel-process-nowhere", {"status"});
  expectNamed("/tmp/korvel-process-nowhere", {"journal"});
  expectNamed("/tmp/korvel-process-nowhere", {"trace", mac.root() + "/out.html"});
  expectNamed(mac.root(), {"up"});
  expectNamed("/tmp/korvel-process-" + std::string(100, 'x'), {"status"});
  const Variable root("VIRTUAL_MAC_ROOT", "/tmp/korvel-process-nowhere");
  expectSays(run("korvel-app", {"ping"}), 1, {"nowhere (VIRTUAL_MAC_ROOT)"});
}

}  // namespace processtests
