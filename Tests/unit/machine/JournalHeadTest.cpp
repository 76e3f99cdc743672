#include "VirtualMac/Machine/JournalHead.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Bench.h"
#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {
namespace {

/// A machine that nothing has happened to.
struct JournalHeadTest : testing::Test {
  Journal journal{[] { return 0.0; }};
  Machine mac{*loadProfile("newer-keys"), journal};
  JournalOrigin origin{.run = "0123456789abcdef", .speed = 60};

  nlohmann::json object() { return nlohmann::json::parse(journalHead(mac, origin).substr(2)); }
};

TEST_F(JournalHeadTest, IsOneLineThatNoReaderTakesForAnEffect) {
  origin.savedState = "{\n  \"chargeLimit\": 80\n}\n";
  const std::string line = journalHead(mac, origin);
  EXPECT_TRUE(line.starts_with("# {\"journal\":1,\"run\":\"0123456789abcdef\",")) << line;
  EXPECT_EQ(line.find('\n'), std::string::npos);
  EXPECT_FALSE(journalEntryFrom(line));
}

TEST_F(JournalHeadTest, TellsTheMachineBeforeItsFirstEffect) {
  const nlohmann::json told = object();
  EXPECT_EQ(told["profile"], "newer-keys");
  EXPECT_EQ(told["clock"], "2026-01-01T00:00:00Z");
  EXPECT_EQ(told["speed"], 60);
  EXPECT_FALSE(told.contains("profileFile"));
  const nlohmann::json& start = told["start"];
  EXPECT_EQ(start["batteryPercent"], mac.profile().battery.startPercent);
  EXPECT_EQ(start["ambientCelsius"], mac.profile().battery.ambientCelsius);
  EXPECT_EQ(start["temperatureCelsius"], mac.profile().battery.ambientCelsius);
  EXPECT_EQ(start["adapterConnected"], true);
  EXPECT_EQ(start["lid"], "open");
  EXPECT_EQ(start["idleSleepMinutes"], mac.profile().idleSleepMinutes);
  EXPECT_EQ(start["smcKeys"]["CHTE"], nlohmann::json({0, 0, 0, 0}));
  EXPECT_EQ(start["faults"], nlohmann::json::array());
  EXPECT_TRUE(start["savedState"].is_null());
  EXPECT_EQ(start["helperVersion"], "2.0.0");
}

TEST_F(JournalHeadTest, ReadsItsOwnLine) {
  mac.battery.setPercent(42.5);
  mac.lid.close();
  mac.lid.connectDisplay();
  mac.adapter.disconnect();
  mac.power.setIdleSleepMinutes(7);
  mac.power.setSleepDisabledExternally(true);
  ASSERT_TRUE(setFault(mac, "smc-silent-refusal CHTE", true));
  mac.bundleInformation.erase("CFBundleShortVersionString");
  origin.savedState = "no \"JSON\"\x01";
  origin.profileFile = "/home/me/own.json";
  origin.seed = 7;
  origin.restartAfterCrash = false;
  const JournalHead written = JournalHead::of(mac, origin);
  const auto read = JournalHead::from(written.line());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->start, written.start);
  EXPECT_EQ(read->start.batteryPercent, 42.5);
  EXPECT_EQ(read->start.lid, "closed");
  EXPECT_EQ(read->start.savedState, origin.savedState);
  EXPECT_EQ(read->start.helperVersion, std::nullopt);
  EXPECT_EQ(read->profileFile, "/home/me/own.json");
  EXPECT_EQ(read->run, origin.run);
  EXPECT_EQ(read->speed, 60);
  EXPECT_EQ(read->seed, 7);
  EXPECT_EQ(read->line(), written.line());
}

TEST_F(JournalHeadTest, AMacMayLackBatteryAndLid) {
  Machine desktop(*loadProfile("desktop"), journal);
  const auto head = JournalHead::from(journalHead(desktop, {}));
  ASSERT_TRUE(head);
  EXPECT_EQ(head->start.batteryPercent, std::nullopt);
  EXPECT_EQ(head->start.lid, "none");
  EXPECT_EQ(head->run, "");
  EXPECT_EQ(head->speed, std::nullopt);
}

TEST_F(JournalHeadTest, SaysWhyAStateFileIsNotTold) {
  origin.savedState = "\xff\xfe";
  JournalHead head = JournalHead::of(mac, origin);
  EXPECT_EQ(head.start.savedState, std::nullopt);
  EXPECT_EQ(head.start.savedStateUntold, "it is not UTF-8 text");
  origin.savedState = std::string(bounds::longestText + 1, 'x');
  head = JournalHead::of(mac, origin);
  EXPECT_EQ(head.start.savedState, std::nullopt);
  EXPECT_EQ(head.start.savedStateUntold, "it has more than 1048576 bytes");
  EXPECT_EQ(JournalHead::from(head.line())->start, head.start);
}

TEST_F(JournalHeadTest, ANumberThatItsFieldCannotHoldIsRefusedAndNotBent) {
  const auto reads = [](const nlohmann::json& told) {
    return JournalHead::from("# " + told.dump()).has_value();
  };
  ASSERT_TRUE(reads(object()));
  for (const char* key : {"idleSleepMinutes", "nativeLimit"}) {
    for (const nlohmann::json& value : {nlohmann::json(1e300), nlohmann::json(1.5),
                                        nlohmann::json(UINT64_MAX), nlohmann::json(true)}) {
      nlohmann::json told = object();
      told["start"][key] = value;
      EXPECT_FALSE(reads(told)) << key << ' ' << value;
    }
  }
  for (const nlohmann::json& byte :
       {nlohmann::json(256), nlohmann::json(-1), nlohmann::json(true)}) {
    nlohmann::json told = object();
    told["start"]["smcKeys"]["CHTE"] = {byte};
    EXPECT_FALSE(reads(told)) << byte;
  }
  nlohmann::json told = object();
  told["seed"] = -1;
  EXPECT_FALSE(reads(told));
  told = object();
  told["start"]["smcKeys"]["NONE"] = nlohmann::json::array();
  EXPECT_EQ(JournalHead::from("# " + told.dump())->start.smcKeys.count("NONE"), 1U);
}

TEST_F(JournalHeadTest, WhatIsNoHeadIsRefused) {
  const std::string whole = journalHead(mac, origin);
  EXPECT_FALSE(JournalHead::from(""));
  EXPECT_FALSE(JournalHead::from("0.000 mac   lid closed"));
  EXPECT_FALSE(JournalHead::from("# a remark"));
  EXPECT_FALSE(JournalHead::from("# {}"));
  EXPECT_FALSE(JournalHead::from("# [1]"));
  EXPECT_FALSE(JournalHead::from(whole.substr(2)));
  EXPECT_FALSE(JournalHead::from(whole.substr(0, whole.size() - 1)));
  EXPECT_FALSE(JournalHead::from("# " + std::string(100000, '[')));
  nlohmann::json other = object();
  other["journal"] = 2;
  EXPECT_FALSE(JournalHead::from("# " + other.dump()));
  nlohmann::json wrong = object();
  wrong["start"]["idleSleepMinutes"] = "ten";
  EXPECT_FALSE(JournalHead::from("# " + wrong.dump()));
  nlohmann::json less = object();
  less["start"].erase("lid");
  EXPECT_FALSE(JournalHead::from("# " + less.dump()));
}

}  // namespace
}  // namespace virtualmac
