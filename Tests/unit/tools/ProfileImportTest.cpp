#include "VirtualMac/Tools/ProfileImport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BatteryRegistryReader.h"
#include "Tests/unit/machine/Bench.h"
#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {
namespace {

using korvel::PropertyValue;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string entry(const std::string& content) { return "<dict>" + content + "</dict>"; }
std::string key(const char* name, const std::string& value) {
  return std::string("<key>") + name + "</key>" + value;
}
std::string number(const char* name, long value) {
  return key(name, "<integer>" + std::to_string(value) + "</integer>");
}
std::string text(const char* name, const char* value) {
  return key(name, std::string("<string>") + value + "</string>");
}
std::string flag(const char* name, bool value) { return key(name, value ? "<true/>" : "<false/>"); }
std::string service(const std::string& content) {
  return entry(text("IOObjectClass", "AppleSmartBattery") + content);
}
std::string dumped(const std::string& content) {
  return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + content + "</plist>";
}
std::string listed(const std::string& content) { return dumped("<array>" + content + "</array>"); }

/// The figures of a notebook that runs from its battery.
std::string figures() {
  return number("DesignCapacity", 5103) + number("AppleRawMaxCapacity", 4500) +
         number("AppleRawCurrentCapacity", 2300) + number("CurrentCapacity", 51) +
         number("MaxCapacity", 100) + number("Temperature", 3112) + number("Amperage", -900) +
         flag("ExternalConnected", false) + flag("IsCharging", false) + number("CycleCount", 211) +
         text("Serial", "F8Y1234567XYZ");
}

ImportedProfile imported(const std::string& dump, const char* like = "newer-keys") {
  const auto read = batteryDumpFrom(dump);
  if (!read) {
    ADD_FAILURE() << read.error();
    return {};
  }
  auto made = importProfile(*read, *profileText(like));
  if (made) return *std::move(made);
  ADD_FAILURE() << made.error();
  return {};
}

std::string errorOf(const std::string& dump, const std::string& base = "{}") {
  const auto read = batteryDumpFrom(dump);
  if (!read) return read.error();
  const auto made = importProfile(*read, base);
  return made ? "imported" : made.error();
}

TEST(ProfileImportTest, TakesTheFiguresOfTheDumpAndTheRestOfTheBase) {
  const ImportedProfile made = imported(listed(service(figures())), "older-pair");
  const auto& battery = made.profile["battery"];
  EXPECT_EQ(battery["designCapacityMilliampHours"], 5103);
  EXPECT_EQ(battery["fullCapacityMilliampHours"], 4500);
  EXPECT_EQ(battery["startPercent"], 51);
  EXPECT_EQ(battery["activeDrainPercentPerHour"], 20);
  EXPECT_EQ(battery["layout"], "root");
  EXPECT_EQ(battery["ambientCelsius"], 25.12) << "less the 6 degrees of running from the battery";
  EXPECT_EQ(made.profile["adapterConnected"], false);
  EXPECT_TRUE(made.profile["smc"]["keys"].contains("CH0B"));
  EXPECT_EQ(made.profile["description"],
            "A real Mac's battery, 5103 mAh by design, 4500 mAh when full, after 211 cycles.");
  EXPECT_THAT(made.kept, ElementsAre("chargePercentPerHour", "heldDrainPercentPerHour"));
  EXPECT_THAT(made.odd, IsEmpty());
}

TEST(ProfileImportTest, NothingPrivateOfTheDumpIsInTheProfile) {
  const std::string dump = listed(service(
      figures() + text("BatterySerialNumber", "F8Y-SECRET") + text("DeviceName", "SECRET") +
      key("AdapterDetails", entry(text("SerialString", "C4-SECRET") + number("Watts", 96))) +
      text("Temperature", "SECRET")));
  const ImportedProfile made = imported(dump);
  for (const std::string& told :
       {made.profile.dump(), made.taken.dump(), nlohmann::json(made.odd).dump()}) {
    EXPECT_THAT(told, Not(HasSubstr("SECRET")));
    EXPECT_THAT(told, Not(HasSubstr("F8Y")));
  }
}

TEST(ProfileImportTest, TheHelperReadsTheSameOfTheVirtualMacAsOfTheRealOne) {
  const std::string pack = number("FullChargeCapacity", 4321) + number("DesignCapacity", 5000) +
                           number("RemainingCapacity", 2160) + number("Temperature", 2950);
  const std::string bank = entry(text("IOObjectClass", "AppleSmartBatteryBank") +
                                 key("BatteryData", entry(number("CellVoltage", 3900))));
  const std::string below =
      entry(text("IOObjectClass", "AppleSmartBatteryPack") + key("BatteryData", entry(pack)) +
            key("IORegistryEntryChildren", "<array>" + bank + bank + "</array>"));
  const std::string content = number("CurrentCapacity", 50) + number("MaxCapacity", 100) +
                              flag("ExternalConnected", true) +
                              key("IORegistryEntryChildren", "<array>" + below + "</array>");
  for (const std::string& dump : {listed(service(content)), listed(service(figures()))}) {
    const auto real = batteryDumpFrom(dump);
    ASSERT_TRUE(real) << real.error();
    const auto profile = parseProfile(imported(dump).profile.dump(), "imported");
    ASSERT_TRUE(profile) << profile.error();
    Bench bench(*profile, 1);
    auto& registry = bench.helper->registry;
    const auto there = korvel::BatteryRegistryReader::properties(
        registry, registry.getMatchingService("AppleSmartBattery"));
    ASSERT_TRUE(there);
    const auto asReal = real->merged();
    for (const char* each : {"DesignCapacity", "AppleRawMaxCapacity", "CurrentCapacity",
                             "MaxCapacity", "ExternalConnected"}) {
      EXPECT_EQ(there->at(each), asReal.at(each)) << each;
    }
    EXPECT_EQ(profile->battery.layout,
              real->pack.empty() ? BatteryLayout::Root : BatteryLayout::Pack);
    EXPECT_EQ(profile->battery.banks, real->banks.size());
  }
}

TEST(ProfileImportTest, FindsTheBatteryAmongOtherNodes) {
  const std::string other = entry(
      text("IOObjectClass", "AppleSmartBatteryManager") +
      key("IORegistryEntryChildren", "<array>" + service(figures()) + service("") + "</array>"));
  const ImportedProfile made = imported(listed(entry(text("IOObjectClass", "Other")) + other));
  EXPECT_EQ(made.profile["battery"]["designCapacityMilliampHours"], 5103);
  EXPECT_THAT(made.odd, Contains(HasSubstr("1 more AppleSmartBattery")));
  EXPECT_EQ(errorOf(dumped(service(figures()))), "imported") << "a dump of one entry, not listed";
  EXPECT_EQ(errorOf(listed(entry(figures()))), "imported") << "a trimmed dump without classes";
}

TEST(ProfileImportTest, ADumpWithoutABatterySaysWhatItHolds) {
  EXPECT_EQ(errorOf(listed("")), "holds no AppleSmartBattery");
  EXPECT_EQ(errorOf(listed(entry(text("IOObjectClass", "AppleSMC")))),
            "holds no AppleSmartBattery; it holds AppleSMC");
  EXPECT_EQ(errorOf(dumped("<string>AppleSmartBattery</string>")), "holds no AppleSmartBattery");
  std::string many;
  for (const char* name : {"A", "B", "C", "D", "E", "F", "G"})
    many += entry(text("IOObjectClass", name));
  EXPECT_THAT(errorOf(listed(many)), HasSubstr("it holds A, B, C, D, E and 2 more"));
  EXPECT_THAT(errorOf(listed(service(flag("ExternalConnected", true)))),
              HasSubstr("without a figure that is read: CurrentCapacity"));
}

TEST(ProfileImportTest, OddValuesAreToldAndLeftToTheBase) {
  const ImportedProfile made = imported(listed(service(
      text("Temperature", "warm") + number("DesignCapacity", 0) + number("CurrentCapacity", 40) +
      number("ExternalConnected", 1) + key("AppleRawMaxCapacity", "<real>4500.5</real>") +
      number("NominalChargeCapacity", 4400) + number("Amperage", 999999))));
  const auto& battery = made.profile["battery"];
  EXPECT_EQ(battery["startPercent"], 40) << "the greatest is 100 where it is not stated";
  EXPECT_EQ(battery["fullCapacityMilliampHours"], 4400);
  for (const char* absent : {"ambientCelsius", "designCapacityMilliampHours"}) {
    EXPECT_FALSE(battery.contains(absent)) << absent;
    EXPECT_THAT(made.kept, Contains(absent));
  }
  EXPECT_FALSE(made.profile.contains("adapterConnected"));
  EXPECT_THAT(made.odd, ElementsAre("DesignCapacity is 0, which is not from 1 to 100000",
                                    "AppleRawMaxCapacity is a fraction in place of a whole number",
                                    "ExternalConnected is a whole number in place of true or false",
                                    "Amperage is 999999, which is not from -50000 to 50000",
                                    "Temperature is text in place of a whole number"));
}

TEST(ProfileImportTest, ChargeIsAShareOfTheGreatestWhereThatIsNot100) {
  const ImportedProfile made =
      imported(listed(service(number("CurrentCapacity", 1234) + number("MaxCapacity", 4936))));
  EXPECT_EQ(made.profile["battery"]["startPercent"], 25);
}

TEST(ProfileImportTest, TheCurrentIsTheRateOfTheStateThatTheMacWasIn) {
  const auto battery = [](long milliamps, bool connected, bool charging) {
    return imported(
               listed(service(number("AppleRawMaxCapacity", 5000) + number("Amperage", milliamps) +
                              flag("ExternalConnected", connected) + flag("IsCharging", charging) +
                              number("Temperature", 3000))))
        .profile["battery"];
  };
  EXPECT_EQ(battery(2500, true, true)["chargePercentPerHour"], 50);
  EXPECT_EQ(battery(2500, true, true)["ambientCelsius"], 21);
  EXPECT_EQ(battery(-500, false, false)["activeDrainPercentPerHour"], 10);
  EXPECT_EQ(battery(-20, true, false)["heldDrainPercentPerHour"], 0.4);
  EXPECT_EQ(battery(-20, true, false)["ambientCelsius"], 30);
  for (const char* rate :
       {"chargePercentPerHour", "activeDrainPercentPerHour", "heldDrainPercentPerHour"}) {
    EXPECT_FALSE(battery(0, true, false).contains(rate)) << rate;
    EXPECT_FALSE(battery(-2500, true, true).contains(rate)) << "charging by a current that drains";
  }
}

TEST(ProfileImportTest, ABatteryThatIsNotInstalledIsNone) {
  const ImportedProfile made =
      imported(listed(service(flag("BatteryInstalled", false) + number("CurrentCapacity", 0))));
  EXPECT_EQ(made.profile["battery"]["present"], false);
}

TEST(ProfileImportTest, ABaseThatIsNoProfileIsRefused) {
  EXPECT_THAT(errorOf(listed(service(figures())), "[]"),
              HasSubstr("the base: the file must be an"));
  EXPECT_THAT(errorOf(listed(service(figures())), "{\"lid\": 3}"),
              HasSubstr("the base: lid must be true or false"));
}

}  // namespace
}  // namespace virtualmac
