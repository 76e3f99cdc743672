#include "VirtualMac/Machine/Profile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

std::string errorOf(std::string_view text) {
  const auto parsed = parseProfile(text, "mine.json");
  EXPECT_FALSE(parsed.has_value()) << text;
  return parsed ? "" : parsed.error();
}

TEST(ProfileTest, EveryBuiltInOneLoadsAndSaysWhatItIs) {
  const std::vector<std::string> names = builtInProfileNames();
  EXPECT_GE(names.size(), 10U);
  EXPECT_TRUE(std::ranges::is_sorted(names));
  for (const std::string& name : names) {
    const auto profile = loadProfile(name);
    ASSERT_TRUE(profile.has_value()) << profile.error();
    EXPECT_EQ(profile->name, name);
    EXPECT_FALSE(profile->description.empty()) << name;
  }
}

TEST(ProfileTest, FamiliesAreData) {
  const auto keysOf = [](std::string_view name) {
    std::vector<std::string> keys;
    const auto profile = loadProfile(name);
    for (const SMCKeyProfile& key : profile->smcKeys) keys.push_back(key.name);
    return keys;
  };
  EXPECT_EQ(keysOf("newer-keys"), (std::vector<std::string>{"CHTE", "CHIE"}));
  EXPECT_EQ(keysOf("older-pair"), (std::vector<std::string>{"CH0B", "CH0C", "CH0I", "CH0J"}));
  EXPECT_TRUE(keysOf("native-only").empty());
  EXPECT_TRUE(loadProfile("native-only")->powerUI.present);
  EXPECT_FALSE(loadProfile("no-control")->powerUI.present);
  EXPECT_FALSE(loadProfile("no-smc")->smcPresent);
  EXPECT_FALSE(loadProfile("desktop")->battery.present);
  EXPECT_FALSE(loadProfile("desktop")->hasLid);
}

TEST(ProfileTest, AnUnknownNameListsTheKnownOnes) {
  const auto loaded = loadProfile("newest-keys");
  ASSERT_FALSE(loaded.has_value());
  EXPECT_TRUE(loaded.error().starts_with(
      "profile \"newest-keys\" is unknown, did you mean \"newer-keys\"? (allowed: "));
  EXPECT_NE(loaded.error().find("newer-keys"), std::string::npos);
}

TEST(ProfileTest, AFileLoadsByItsPath) {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("profile-" + std::to_string(::getpid()) + ".json");
  std::ofstream(path) << R"({"description": "mine", "battery": {"startPercent": 33}})";
  const auto loaded = loadProfile(path.string());
  std::filesystem::remove(path);
  ASSERT_TRUE(loaded.has_value()) << loaded.error();
  EXPECT_EQ(loaded->description, "mine");
  EXPECT_EQ(loaded->battery.startPercent, 33);
  EXPECT_EQ(loaded->name, path.stem().string());
  const auto missing = loadProfile("/no/such/file.json");
  ASSERT_FALSE(missing.has_value());
  EXPECT_EQ(missing.error(), "/no/such/file.json: cannot be read");
}

TEST(ProfileTest, OfferedLimitsMayBeAnything) {
  const auto parsed = parseProfile(
      R"({"powerUI": {"offeredLimits": [80, 2.5, "x", true, null, {"a": []}]}})", "mine.json");
  ASSERT_TRUE(parsed.has_value());
  const auto* limits = parsed->powerUI.offeredLimits.array();
  ASSERT_NE(limits, nullptr);
  ASSERT_EQ(limits->size(), 6U);
  EXPECT_EQ((*limits)[0].integer(), 80);
  EXPECT_EQ((*limits)[1].real(), 2.5);
  EXPECT_EQ(*(*limits)[2].text(), "x");
  EXPECT_EQ((*limits)[3].boolean(), true);
  EXPECT_TRUE((*limits)[4].isAbsent());
  EXPECT_NE((*limits)[5]["a"].array(), nullptr);
}

TEST(ProfileTest, AnOfferedNumberBeyondAPropertyListsIsRefused) {
  const auto with = [](const std::string& offer) {
    return R"({"powerUI": {"offeredLimits": )" + offer + "}}";
  };
  EXPECT_TRUE(parseProfile(with("[9223372036854775807]"), "mine.json"));
  for (const std::string offer : {"9223372036854775808", R"([80, {"a": 18446744073709551615}])"}) {
    EXPECT_EQ(errorOf(with(offer)),
              "mine.json: powerUI.offeredLimits must be without whole numbers above "
              "9223372036854775807");
  }
}

TEST(ProfileTest, IdentitiesAndPowerSourcesAreRead) {
  const auto parsed = parseProfile(R"({
    "identities": [{"name": "tool", "anchorAppleGeneric": true, "identifier": "com.example.tool",
                    "team": "TEAM", "leafExtensions": ["1.2.3"]}],
    "powerSources": [{"name": "UPS", "type": "UPS", "place": "after battery"}]})",
                                   "mine.json");
  ASSERT_TRUE(parsed.has_value()) << parsed.error();
  Bench bench{*parsed, 1};
  ASSERT_NE(bench.mac.signatures.identity("tool"), nullptr);
  EXPECT_EQ(bench.mac.signatures.identity("tool")->leafExtensions.at(0), "1.2.3");
  EXPECT_EQ(*bench.mac.powerSources.current()->at(1)["Type"].text(), "UPS");
}

// Each complaint is one line that names the file, the key and the values allowed.
TEST(ProfileTest, ErrorsNameFileKeyAndAllowedValues) {
  EXPECT_EQ(errorOf("[]"), "mine.json: the file must be an object");
  EXPECT_EQ(errorOf(R"({"lid": 1})"), "mine.json: lid must be true or false");
  EXPECT_EQ(errorOf(R"({"battery": {"layout": "flat"}})"),
            "mine.json: battery.layout must be one of \"root\", \"pack\"");
  EXPECT_EQ(errorOf(R"({"battery": {"startPercent": 101}})"),
            "mine.json: battery.startPercent must be a number from 0 to 100");
  EXPECT_EQ(errorOf(R"({"battery": {"banks": 2.5}})"),
            "mine.json: battery.banks must be a whole number from 0 to 16");
  EXPECT_EQ(errorOf(R"({"idleSleepMinutes": 18446744073709551615})"),
            "mine.json: idleSleepMinutes must be a whole number from 0 to 1440");
  EXPECT_EQ(errorOf(R"({"smc": {"keys": {"CHTEX": {}}}})"),
            "mine.json: smc.keys.CHTEX must be named by four characters");
  EXPECT_EQ(errorOf(R"({"smc": {"keys": {"CHTE": {"type": "u"}}}})"),
            "mine.json: smc.keys.CHTE.type must be four characters");
  EXPECT_EQ(errorOf(R"({"smc": {"keys": {"CHTE": {"size": 1, "bytes": [1, 2]}}}})"),
            "mine.json: smc.keys.CHTE.bytes must be a list of at most size numbers from 0 to 255");
  EXPECT_EQ(errorOf(R"({"powerSources": {}})"),
            "mine.json: powerSources must be a list of objects");
  EXPECT_EQ(errorOf(R"({"powerSources": [{}, 7]})"),
            "mine.json: powerSources[1] must be an object");
  EXPECT_EQ(errorOf(R"({"identities": [{"identifier": "x"}]})"),
            "mine.json: identities[0].name must be text that is not empty");
  EXPECT_EQ(errorOf(R"({"identities": [{"name": "x", "leafExtensions": [1]}]})"),
            "mine.json: identities[0].leafExtensions must be a list of object identifiers as text");
}

TEST(ProfileTest, ANameWithALineBreakIsToldInOneLine) {
  EXPECT_EQ(errorOf(R"({"smc": {"keys": {"C\n\"HTE": {"size": 1, "type": "ui8 "}}}})"),
            R"(mine.json: smc.keys.C\n\"HTE must be named by four characters)");
  EXPECT_THAT(errorOf(R"({"fan\n": 1})"),
              testing::StartsWith(R"(mine.json: fan\n is not known; known here: )"));
}

TEST(ProfileTest, AnUnknownKeyListsTheKnownOnes) {
  EXPECT_EQ(errorOf(R"({"powerUI": {"offered": []}})"),
            "mine.json: powerUI.offered is not known; known here: present, supported, "
            "offeredLimits, currentLimit");
}

TEST(ProfileTest, BrokenJSONIsToldWithItsByte) {
  EXPECT_EQ(errorOf(R"({"lid": )"), "mine.json: not JSON at byte 9");
}

}  // namespace
}  // namespace virtualmac
