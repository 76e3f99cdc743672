#include "VirtualMac/Machine/Faults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <utility>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

std::string errorOf(Machine& mac, std::string_view line, bool on = true) {
  const auto switched = setFault(mac, line, on);
  return switched ? "" : switched.error();
}

/// Returns a line with valid arguments for the fault.
std::string exampleArguments(const Fault& fault) {
  std::string line(fault.name);
  // The missing key must not be one on which other faults are set.
  const char* key = fault.name == "smc-key-missing" ? " CHIE" : " CHTE";
  if (fault.arguments.starts_with("KEY")) line += key;
  if (fault.arguments == "KEY CODE") line += " 132";
  if (fault.arguments == "KEY BYTE..." || fault.arguments == "KEY SIZE") line += " 2";
  if (fault.arguments == "SECONDS" || fault.arguments == "BYTES") line += " 3";
  if (fault.arguments == "CELSIUS") line += " 50";
  if (fault.arguments == "MOMENT") line += " resume";
  if (fault.arguments == "NAME") line += " alloc";
  if (fault.arguments == "TEXT...") line += " some text";
  if (fault.arguments == "[LIMIT...]") line += " 80 100";
  if (fault.arguments == "CALL SECONDS") line += " clockNow 2";
  if (fault.arguments == "CALL ERRNO") line += " fsync 5";
  return line;
}

TEST(FaultNamesTest, TheCatalogueIsSortedUniqueAndDescribed) {
  std::set<std::string_view> names;
  for (const Fault& fault : faultCatalogue()) {
    EXPECT_TRUE(names.insert(fault.name).second) << fault.name;
    EXPECT_TRUE(fault.text.ends_with('.')) << fault.name;
  }
  EXPECT_GE(names.size(), 40U);
  EXPECT_TRUE(std::ranges::is_sorted(faultCatalogue(), {}, &Fault::name));
}

TEST(FaultNamesTest, EveryFaultSwitchesOnAndOff) {
  Bench bench;
  for (const Fault& fault : faultCatalogue()) {
    const std::string line = exampleArguments(fault);
    EXPECT_EQ(errorOf(bench.mac, line), "");
    EXPECT_EQ(errorOf(bench.mac, line, false), "");
  }
  EXPECT_TRUE(activeFaults(bench.mac).empty());
}

TEST(FaultNamesTest, EverySwitchIsALineOfTheJournal) {
  Bench bench;
  bench.fault("smc-result CHTE 132");
  bench.fault("smc-result CHTE", false);
  bench.fault("smc-result CHTE", false);
  bench.fault("smc-stale");
  bench.fault("temperature-override 47");
  EXPECT_NE(errorOf(bench.mac, "smc-result QQQQ 1"), "");
  EXPECT_EQ(bench.takeLines("mac"),
            "0.000 mac   fault smc-result CHTE 132 on\n"
            "0.000 mac   fault smc-result CHTE off\n"
            "0.000 mac   fault smc-stale on\n"
            "0.000 mac   fault temperature-override 47 on\n");
}

TEST(FaultNamesTest, AFaultThatTakesThePlaceOfAnotherSaysSo) {
  Bench bench;
  bench.fault("adapter-unknown");
  bench.fault("adapter-mistyped");
  bench.fault("adapter-mistyped");
  EXPECT_EQ(bench.takeLines("mac"),
            "0.000 mac   fault adapter-unknown on\n"
            "0.000 mac   fault adapter-mistyped on (in place of adapter-unknown)\n"
            "0.000 mac   fault adapter-mistyped on\n");
}

TEST(FaultNamesTest, AHealedMachineIsAsItWas) {
  Bench bench{"newer-keys-and-native"};
  for (const Fault& fault : faultCatalogue()) bench.fault(exampleArguments(fault));
  for (const Fault& fault : faultCatalogue()) {
    bench.fault(exampleArguments(fault), false);
  }
  Bench fresh{"newer-keys-and-native"};
  const auto rootDomain = [](Bench& each) {
    return each.mac.registry.properties(each.mac.registry.matching("IOPMrootDomain"));
  };
  EXPECT_EQ(rootDomain(bench), rootDomain(fresh));
  bench.mac.battery.overrideTemperatureCelsius(24);
  const auto battery = [](Bench& each) {
    return each.mac.registry.properties(each.mac.registry.matching("AppleSmartBattery"));
  };
  EXPECT_EQ(battery(bench), battery(fresh));
  EXPECT_EQ(*bench.mac.powerSources.current(), *fresh.mac.powerSources.current());
  EXPECT_EQ(writeKey(*bench.helper, "CHTE", {1, 0, 0, 0}), smcResultSuccess);
  EXPECT_TRUE(bench.mac.smc.chargingInhibited());
  EXPECT_TRUE(bench.mac.power.copySystemPowerSettings().isAbsent());
  EXPECT_EQ(bench.mac.powerUI.offeredLimits, fresh.mac.powerUI.offeredLimits);
  EXPECT_EQ(bench.mac.signatures.atPath(helperProgramPath)->name, "helper");
  EXPECT_EQ(bench.mac.latencySeconds(SeamCall::smcCallStruct), 0);
  EXPECT_EQ(bench.mac.latencySeconds(SeamCall::clockNow), 0);
  EXPECT_EQ(bench.helper->files.mkdir("/fresh", 0700).value, 0);
}

TEST(FaultNamesTest, AnUnknownNameShowsTheNearOnes) {
  Bench bench;
  EXPECT_TRUE(errorOf(bench.mac, "disk-fulll")
                  .starts_with("fault \"disk-fulll\" is unknown, did you mean \"disk-full\"?"));
  const std::string all = errorOf(bench.mac, "gremlins-everywhere");
  EXPECT_TRUE(all.starts_with("fault \"gremlins-everywhere\" is unknown (allowed: "));
  for (const Fault& fault : faultCatalogue()) {
    EXPECT_NE(all.find(fault.name), std::string::npos) << fault.name;
  }
  EXPECT_NE(errorOf(bench.mac, "smc").find("did you mean \"smc-"), std::string::npos);
  EXPECT_NE(errorOf(bench.mac, "smc").find("smc-missing"), std::string::npos);
  EXPECT_NE(errorOf(bench.mac, ""), "");
}

TEST(FaultNamesTest, WrongArgumentsAreToldWithWhatIsExpected) {
  Bench bench;
  EXPECT_EQ(errorOf(bench.mac, "smc-result CHTE"), "smc-result takes KEY CODE");
  EXPECT_EQ(errorOf(bench.mac, "disk-full now"), "disk-full takes no arguments");
  EXPECT_EQ(errorOf(bench.mac, "smc-result CHTE 256"),
            "smc-result takes KEY CODE: \"256\" is not a whole number from 1 to 255");
  EXPECT_EQ(errorOf(bench.mac, "smc-silent-refusal XXXX"),
            "smc-silent-refusal takes KEY: this machine has no key XXXX");
  EXPECT_NE(errorOf(bench.mac, "smc-latency soon"), "");
  EXPECT_NE(errorOf(bench.mac, "smc-latency nan"), "");
  EXPECT_NE(errorOf(bench.mac, "call-latency noSuchCall 1"), "");
  EXPECT_NE(errorOf(bench.mac, "temperature-override 1x"), "");
  EXPECT_NE(errorOf(bench.mac, "smc-key-missing XXXX"), "");
  EXPECT_EQ(errorOf(bench.mac, "disk-call-fails fsink 5"),
            "disk-call-fails takes CALL ERRNO: no file call that can fail is called \"fsink\"; "
            "there are: mkdir, chmod, openExclusive, openReadOnly, write, fsync, close, unlink, "
            "replaceItem, fileExists, readFile");
  EXPECT_NE(errorOf(bench.mac, "disk-call-fails umask 5"), "") << "it cannot fail";
  EXPECT_EQ(errorOf(bench.mac, "connection-breaks never"),
            "connection-breaks takes MOMENT: no moment is called \"never\"; there are: handler, "
            "resume, after");
  EXPECT_EQ(errorOf(bench.mac, "powerui-method-missing foo"),
            "powerui-method-missing takes NAME: no method is called \"foo\"; there are: alloc, "
            "initWithClientName:, isMCLSupported, isMCLCurrentlyEnabled:, getMCLLimitWithError:, "
            "availableChargeLimitsWithError:, setMCLLimit:error:");
  EXPECT_TRUE(activeFaults(bench.mac).empty());
  EXPECT_EQ(bench.mac.smc.callLatencySeconds, 0) << "a refused fault changes nothing";
}

TEST(FaultNamesTest, ActiveFaultsAreListedOncePerKey) {
  Bench bench;
  bench.fault("smc-result CHTE 1");
  bench.fault("smc-result CHIE 2");
  bench.fault("smc-result CHTE 3");
  bench.fault("disk-full");
  bench.fault("smc-stale");
  EXPECT_EQ(activeFaults(bench.mac),
            (std::vector<std::string>{"smc-result CHIE 2", "smc-result CHTE 3", "disk-full"}));
  bench.fault("smc-result CHIE", false);
  bench.fault("disk-full", false);
  EXPECT_EQ(activeFaults(bench.mac), std::vector<std::string>{"smc-result CHTE 3"});
}

// A key that is not missing keeps its value, and a key that the machine never had stays absent.
TEST(FaultNamesTest, SwitchingOffWhatIsNotOnChangesNothing) {
  Bench bench;
  EXPECT_EQ(writeKey(*bench.helper, "CHTE", {1, 0, 0, 0}), smcResultSuccess);
  bench.fault("smc-key-missing CHTE", false);
  EXPECT_TRUE(bench.mac.smc.chargingInhibited());
  bench.mac.battery.overrideTemperatureCelsius(41);
  bench.fault("temperature-override", false);
  EXPECT_EQ(bench.mac.battery.temperatureHundredths(), 4100);

  Bench without{"no-smc"};
  without.fault("smc-missing", false);
  EXPECT_FALSE(without.mac.smc.servicePresent);
  without.fault("smc-missing");
  without.fault("smc-missing", false);
  EXPECT_FALSE(without.mac.smc.servicePresent) << "as the profile has it";
}

TEST(FaultNamesTest, OfFaultsThatChangeTheSameTheLastOneIsOn) {
  const std::vector<std::pair<std::string, std::string>> pairs{
      {"adapter-unknown", "adapter-mistyped"},
      {"battery-unreadable", "battery-mistyped"},
      {"temperature-unreadable", "temperature-mistyped"},
      {"settings-unreadable", "settings-mistyped"},
      {"smc-open-refused", "smc-reopen-fails"},
      {"helper-unsigned", "helper-without-team"}};
  for (const auto& [first, second] : pairs) {
    Bench bench;
    bench.fault("disk-full");
    bench.fault(first);
    bench.fault(second);
    EXPECT_EQ(activeFaults(bench.mac), (std::vector<std::string>{"disk-full", second}));
    bench.fault(first, false);
    EXPECT_EQ(activeFaults(bench.mac), (std::vector<std::string>{"disk-full", second}));
    bench.fault(first);
    EXPECT_EQ(activeFaults(bench.mac), (std::vector<std::string>{"disk-full", first}));
  }
  Bench bench;
  const auto connected = [&bench] {
    const Registry::EntryID battery = bench.mac.registry.matching("AppleSmartBattery");
    return bench.mac.registry.property(battery, "ExternalConnected");
  };
  bench.fault("adapter-unknown");
  bench.fault("adapter-mistyped");
  bench.fault("adapter-unknown", false);
  EXPECT_EQ(connected(), korvel::PropertyValue(1)) << "the fault that is on goes on";
  bench.fault("adapter-mistyped", false);
  EXPECT_EQ(connected(), korvel::PropertyValue(true));
}

TEST(FaultNamesTest, LatenciesAreForTheGate) {
  Bench bench;
  bench.fault("smc-latency 0.25");
  EXPECT_EQ(bench.mac.latencySeconds(SeamCall::smcCallStruct), 0.25);
  EXPECT_EQ(bench.mac.latencySeconds(SeamCall::smcOpen), 0);
  bench.fault("call-latency fileFsync 2");
  EXPECT_EQ(bench.mac.latencySeconds(SeamCall::fileFsync), 2);
}

}  // namespace
}  // namespace virtualmac
