#include <gtest/gtest.h>

#include <set>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

constexpr const char* directory = "/data";
const std::string state = "/data/state.json";
const std::string temporary = "/data/state.json.tmp";

/// Collects, over many seeds, the possible results of a power loss after some steps.
struct Outcomes {
  std::set<std::optional<std::string>> contents;
  std::set<std::vector<std::string>> names;
};

template <class Steps>
Outcomes afterPowerLoss(Steps&& steps) {
  Outcomes outcomes;
  for (std::uint64_t seed = 1; seed <= 64; ++seed) {
    Bench bench{"newer-keys", seed};
    bench.mac.disk.makeDirectory(directory);
    bench.mac.disk.writeFile(state, "old");
    steps(bench);
    bench.mac.powerLoss();
    outcomes.contents.insert(bench.mac.disk.content(state));
    outcomes.names.insert(bench.mac.disk.list(directory));
  }
  return outcomes;
}

void writeTemporary(FilesClient& files, bool synced) {
  const int descriptor = static_cast<int>(files.openExclusive(temporary, 0600).value);
  files.write(descriptor, std::string("fresh"));
  if (synced) files.fsync(descriptor);
  files.close(descriptor);
}

void syncDirectory(FilesClient& files) {
  const int descriptor = static_cast<int>(files.openReadOnly(directory).value);
  files.fsync(descriptor);
  files.close(descriptor);
}

using Contents = std::set<std::optional<std::string>>;
using Names = std::set<std::vector<std::string>>;

TEST(DiskPowerLossTest, AFullySyncedReplacementIsNeverLost) {
  const Outcomes outcomes = afterPowerLoss([](Bench& bench) {
    writeTemporary(bench.helper->files, true);
    ASSERT_TRUE(bench.helper->files.replaceItem(state, temporary).has_value());
    syncDirectory(bench.helper->files);
  });
  EXPECT_EQ(outcomes.contents, Contents{"fresh"});
  EXPECT_EQ(outcomes.names, Names{{"state.json"}});
}

TEST(DiskPowerLossTest, WithoutTheDirectoryItIsTheOldOrTheNewFile) {
  const Outcomes outcomes = afterPowerLoss([](Bench& bench) {
    writeTemporary(bench.helper->files, true);
    ASSERT_TRUE(bench.helper->files.replaceItem(state, temporary).has_value());
  });
  EXPECT_EQ(outcomes.contents, (Contents{"old", "fresh"}));
  EXPECT_EQ(outcomes.names, (Names{{"state.json"}, {"state.json", "state.json.tmp"}}));
}

TEST(DiskPowerLossTest, AnUnsyncedFileKeepsAPrefix) {
  const Outcomes outcomes = afterPowerLoss([](Bench& bench) {
    writeTemporary(bench.helper->files, false);
    ASSERT_TRUE(bench.helper->files.replaceItem(state, temporary).has_value());
    syncDirectory(bench.helper->files);
  });
  EXPECT_EQ(outcomes.contents, (Contents{"", "f", "fr", "fre", "fres", "fresh"}));
}

TEST(DiskPowerLossTest, HalfAMinuteLaterEverythingIsDurable) {
  const Outcomes outcomes = afterPowerLoss([](Bench& bench) {
    writeTemporary(bench.helper->files, false);
    ASSERT_TRUE(bench.helper->files.replaceItem(state, temporary).has_value());
    bench.mac.advance(30);
  });
  EXPECT_EQ(outcomes.contents, Contents{"fresh"});
}

TEST(DiskPowerLossTest, ARemovalMayComeBack) {
  const Outcomes outcomes = afterPowerLoss([](Bench& bench) { bench.helper->files.unlink(state); });
  EXPECT_EQ(outcomes.contents, (Contents{std::nullopt, "old"}));
}

TEST(DiskPowerLossTest, ANewDirectoryMayBeLostWithAllThatIsInIt) {
  std::set<bool> found;
  for (std::uint64_t seed = 1; seed <= 64; ++seed) {
    Bench bench{"newer-keys", seed};
    FilesClient& files = bench.helper->files;
    files.mkdir("/fresh", 0700);
    const int descriptor = static_cast<int>(files.openExclusive("/fresh/file", 0600).value);
    files.fsync(descriptor);
    const int opened = static_cast<int>(files.openReadOnly("/fresh").value);
    files.fsync(opened);
    bench.mac.powerLoss();
    found.insert(bench.mac.disk.facts("/fresh/file").has_value());
  }
  EXPECT_EQ(found, (std::set<bool>{false, true}));
}

TEST(DiskPowerLossTest, AnOrderlyRebootAndAKilledProcessLoseNothing) {
  Bench bench;
  bench.mac.disk.makeDirectory(directory);
  writeTemporary(bench.helper->files, false);
  bench.mac.endProcess(412, ProcessEnd{std::nullopt, 9});
  EXPECT_EQ(bench.mac.disk.content(temporary), "fresh");
  bench.mac.reboot();
  bench.mac.powerLoss();
  EXPECT_EQ(bench.mac.disk.content(temporary), "fresh");
}

TEST(DiskPowerLossTest, TheSameSeedLosesTheSame) {
  const auto run = [](std::uint64_t seed) {
    Bench bench{"newer-keys", seed};
    bench.mac.disk.makeDirectory(directory);
    for (int i = 0; i < 20; ++i) {
      const std::string name = "/data/" + std::to_string(i);
      const int descriptor = static_cast<int>(bench.helper->files.openExclusive(name, 0600).value);
      bench.helper->files.write(descriptor, std::string(100, 'x'));
    }
    bench.mac.powerLoss();
    std::string left;
    for (const std::string& name : bench.mac.disk.list(directory)) {
      left += name + " " + std::to_string(bench.mac.disk.facts("/data/" + name)->size) + "\n";
    }
    return left;
  };
  EXPECT_EQ(run(7), run(7));
  EXPECT_NE(run(7), run(8));
}

}  // namespace
}  // namespace virtualmac
