#include "VirtualMac/Machine/Deeds.h"

#include <gtest/gtest.h>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

std::string errorOf(std::string_view name, const std::string& word) {
  const auto value = deedNamed(name)->values->read(name, word);
  return value ? "" : value.error();
}

std::string done(Machine& mac, std::string_view name, const std::string& word = "") {
  const Deed& deed = *deedNamed(name);
  return deed.perform(mac, deed.values ? *deed.values->read(name, word) : GivenValue{});
}

TEST(DeedCatalogueTest, EveryDeedIsFoundByItsNameAndTakesWhatItSays) {
  for (const Deed& deed : deedCatalogue()) {
    EXPECT_EQ(deedNamed(deed.name), &deed);
    if (!deed.values) continue;
    EXPECT_FALSE(deed.values->text().empty()) << deed.name;
    for (const std::string& word : deed.values->words) EXPECT_EQ(errorOf(deed.name, word), "");
    EXPECT_NE(errorOf(deed.name, "sideways"), "");
    EXPECT_NE(errorOf(deed.name, ""), "");
  }
  EXPECT_EQ(deedNamed("dance"), nullptr);
  EXPECT_EQ(deedNames(false), (std::vector<std::string_view>{"sleep", "wake", "touch"}));
}

TEST(DeedCatalogueTest, AWrongValueIsAnsweredWithTheAllowedOnes) {
  EXPECT_EQ(errorOf("lid", "opne"),
            "lid \"opne\" is unknown, did you mean \"open\"? (allowed: open, closed)");
  EXPECT_EQ(errorOf("battery", "101"), "battery \"101\" is not allowed (allowed: 0 to 100)");
  EXPECT_EQ(errorOf("temperature", "fre"),
            "temperature \"fre\" is not allowed (allowed: free, -40 to 120)");
  EXPECT_EQ(errorOf("idle-sleep", "0.5"),
            "idle-sleep \"0.5\" is not allowed (allowed: whole numbers from 0 to 1440)");
  for (const char* word : {"", " 5", "5 ", "0x5", "1e1", "nan", "inf", "-1", "--5", "half"})
    EXPECT_NE(errorOf("battery", word), "") << word;
  for (const char* word : {"0", "100", "79.5"}) EXPECT_EQ(errorOf("battery", word), "") << word;
  EXPECT_EQ(errorOf("ambient", "-5"), "");
}

TEST(DeedCatalogueTest, ADeedSaysWhatThisMacLacks) {
  Bench desktop("desktop");
  EXPECT_EQ(done(desktop.mac, "lid", "closed"), "this Mac has no lid");
  EXPECT_EQ(done(desktop.mac, "battery", "50"), "this Mac has no battery");
  EXPECT_EQ(done(desktop.mac, "temperature", "free"), "this Mac has no battery");
  EXPECT_EQ(done(desktop.mac, "native-limit", "80"), "this Mac's system has no charge limit");
  Bench notebook;
  EXPECT_EQ(done(notebook.mac, "adapter", "off"), "");
  EXPECT_EQ(done(notebook.mac, "adapter", "renegotiate"), "no adapter is connected");
  EXPECT_EQ(done(notebook.mac, "touch"), "");
}

}  // namespace
}  // namespace virtualmac
