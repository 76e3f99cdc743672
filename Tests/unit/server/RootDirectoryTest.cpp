#include "VirtualMac/Server/RootDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace virtualmac {
namespace {

/// Makes a temporary place, and names a root in it that does not exist yet.
class RootDirectoryTest : public testing::Test {
 protected:
  RootDirectoryTest() {
    std::string name = (std::filesystem::temp_directory_path() / "root-directory-XXXXXX").string();
    EXPECT_NE(::mkdtemp(name.data()), nullptr);
    place = name;
    named.path = place + "/virtual-mac";
    standard = {named.path, true};
  }
  void TearDown() override { std::filesystem::remove_all(place); }

  void put(mode_t mode) const {
    ASSERT_EQ(::mkdir(named.path.c_str(), 0700), 0);
    ASSERT_EQ(::chmod(named.path.c_str(), mode), 0);
  }
  [[nodiscard]] mode_t mode() const {
    struct stat facts{};
    EXPECT_EQ(::stat(named.path.c_str(), &facts), 0);
    return facts.st_mode & 07777;
  }
  static void expectRefused(const RootDirectory& root, const std::string& words) {
    EXPECT_NE(root.distrust().value_or("trusted").find(words), std::string::npos)
        << root.distrust().value_or("trusted");
    const auto made = root.make();
    ASSERT_FALSE(made);
    EXPECT_EQ(made.error(), root.distrust());
  }

  std::string place;
  RootDirectory named;
  RootDirectory standard;
};

// NOLINTBEGIN(concurrency-mt-unsafe): the test has one thread
/// Sets a variable as long as it lives, and unsets it then.
class Environment {
 public:
  Environment(const char* variable, const std::string& value) : name(variable) {
    ::setenv(name, value.c_str(), 1);
  }
  ~Environment() { ::unsetenv(name); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* name;
};
// NOLINTEND(concurrency-mt-unsafe)

}  // namespace

TEST_F(RootDirectoryTest, OnlyTheOneThatNobodyNamedIsTheDefault) {
  const Environment none("VIRTUAL_MAC_ROOT", "");
  EXPECT_TRUE(RootDirectory::at("").isDefault);
  EXPECT_FALSE(RootDirectory::at(place).isDefault);
  EXPECT_EQ(RootDirectory::at(place + "/").path, place);
}

TEST_F(RootDirectoryTest, AVariableNamesItWhereNobodyElseDoes) {
  const Environment variable("VIRTUAL_MAC_ROOT", place + "/of-a-variable/");
  const RootDirectory root = RootDirectory::at("");
  EXPECT_EQ(root.path, place + "/of-a-variable");
  EXPECT_FALSE(root.isDefault);
  EXPECT_EQ(root.origin(), " (VIRTUAL_MAC_ROOT)");
  EXPECT_EQ(RootDirectory::at(place).path, place);
  EXPECT_EQ(RootDirectory::at(place).origin(), "");
}

TEST_F(RootDirectoryTest, ANewOneIsOpenToItsOwnerOnly) {
  const mode_t before = ::umask(0);
  EXPECT_EQ(standard.make(), "");
  EXPECT_EQ(mode(), 0700U);
  ASSERT_TRUE(std::filesystem::remove(named.path));
  EXPECT_EQ(named.make(), "");
  EXPECT_EQ(mode(), 0700U);
  ::umask(before);
}

TEST_F(RootDirectoryTest, ADefaultThatIsTheUsersAloneIsTakenAgain) {
  EXPECT_EQ(standard.distrust(), std::nullopt) << "it is not there yet";
  put(0700);
  EXPECT_EQ(standard.distrust(), std::nullopt);
  EXPECT_EQ(standard.make(), "");
}

TEST_F(RootDirectoryTest, ADefaultThatIsALinkIsRefused) {
  ASSERT_EQ(::mkdir((place + "/elsewhere").c_str(), 0700), 0);
  std::filesystem::create_directory_symlink(place + "/elsewhere", named.path);
  expectRefused(standard, named.path + " is a link");
  EXPECT_EQ(named.make(), "") << "a link that somebody named is what they meant";
}

TEST_F(RootDirectoryTest, ADefaultThatIsNoDirectoryIsRefused) {
  std::ofstream(named.path) << "a file";
  expectRefused(standard, named.path + " is no directory");
  EXPECT_EQ(named.make(), std::unexpected(named.path + " is no directory"));
}

TEST_F(RootDirectoryTest, ADefaultThatBelongsToAnotherUserIsRefused) {
  put(0700);
  RootDirectory theirs = standard;
  // A user cannot give a directory away, so the superuser's root directory serves for them.
  if (::geteuid() != 0)
    theirs.path = "/";
  else
    ASSERT_EQ(::chown(theirs.path.c_str(), 65534, 65534), 0);
  expectRefused(theirs, theirs.path + " belongs to another user");
}

TEST_F(RootDirectoryTest, ADefaultThatIsOpenToOthersIsRefusedAndLeftAsItIs) {
  put(0755);
  expectRefused(standard, named.path + " is open to others");
  EXPECT_EQ(mode(), 0755U);
  ASSERT_EQ(::chmod(named.path.c_str(), 0710), 0);
  expectRefused(standard, named.path + " is open to others");
}

TEST_F(RootDirectoryTest, ANamedOneThatIsOpenToOthersIsClosedToThemAndThatIsSaid) {
  put(0755);
  EXPECT_EQ(named.distrust(), std::nullopt);
  EXPECT_EQ(named.make(), named.path + " was open to others; now it is open to its owner only");
  EXPECT_EQ(mode(), 0700U);
  EXPECT_EQ(named.make(), "") << "it is said once";
}

TEST_F(RootDirectoryTest, ANamedOneThatWasAMachinesIsClosedWithEverythingInIt) {
  put(0755);
  std::ofstream(named.journal()) << "a machine was here\n";
  std::ofstream(named.path + "/picture.svg") << "drawn by its user";
  EXPECT_TRUE(named.make());
  EXPECT_EQ(mode(), 0700U);
}

// It may be a home, a desktop or the common temporary directory.
TEST_F(RootDirectoryTest, ADirectoryThatIsMoreThanAMachinesIsNeverClosed) {
  put(0755);
  std::ofstream(named.path + "/letter") << "dear";
  const std::string reason = named.path +
                             " is open to others and holds other things than a virtual Mac; name a "
                             "directory of the machine's own";
  EXPECT_EQ(named.make(), std::unexpected(reason));
  EXPECT_EQ(mode(), 0755U);
  ASSERT_TRUE(std::filesystem::remove(named.path + "/letter"));
  ASSERT_EQ(::chmod(named.path.c_str(), 01777), 0);
  EXPECT_EQ(named.make(), std::unexpected(reason)) << "empty, and everybody's all the same";
  EXPECT_EQ(mode(), 01777U);
}

TEST_F(RootDirectoryTest, ANamedOneOfTheUsersOwnKeepsItsFiles) {
  put(0700);
  std::ofstream(named.path + "/letter") << "dear";
  EXPECT_EQ(named.make(), "");
  EXPECT_TRUE(std::filesystem::exists(named.path + "/letter"));
}

TEST_F(RootDirectoryTest, WhatCannotBeMadeIsNamedWithTheReason) {
  std::ofstream(named.path) << "a file";
  const RootDirectory below{named.path + "/root"};
  EXPECT_EQ(below.make(), std::unexpected(below.path + ": Not a directory"));
}

}  // namespace virtualmac
