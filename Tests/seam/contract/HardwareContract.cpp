#include <algorithm>
#include <array>
#include <string_view>

#include "Platform/IORegistry.h"
#include "Platform/PowerSources.h"
#include "Platform/SMCUserClient.h"
#include "SeamContract.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {
namespace {

using Block = std::array<std::uint8_t, korvel::smcBlockSize>;

constexpr std::uint8_t readCommand = 5;
constexpr std::uint8_t writeCommand = 6;
constexpr std::uint8_t keyInfoCommand = 9;
constexpr std::size_t sizeField = 28;
constexpr std::size_t resultField = 40;
constexpr std::size_t commandField = 42;
constexpr std::size_t bytesField = 48;

Block makeBlock(std::string_view key, std::uint8_t command) {
  Block block{};
  for (std::size_t i = 0; i < 4; ++i) {
    block[i] = static_cast<std::uint8_t>(key[3 - i]);  // A big-endian code, stored little-endian.
  }
  block[commandField] = command;
  return block;
}

/// An open connection that the destructor closes.
struct OpenSMC {
  explicit OpenSMC(korvel::SMCUserClient& client) : smc(client) {
    const korvel::ObjectRef service = smc.matchAppleSMC();
    result = smc.open(service, connection);
    smc.objectRelease(service);
  }
  ~OpenSMC() { smc.close(connection); }
  OpenSMC(const OpenSMC&) = delete;
  OpenSMC& operator=(const OpenSMC&) = delete;

  korvel::SMCUserClient& smc;
  korvel::ConnectionRef connection = 0;
  korvel::KernReturn result = korvel::ioReturnError;
};

}  // namespace

// ---- SMCUserClient

TEST_P(SMCUserClientContract, TheServiceIsFoundAndItsConnectionOpens) {
  const korvel::ObjectRef service = platform().smc.matchAppleSMC();
  ASSERT_NE(service, 0U);
  korvel::ConnectionRef connection = 0;
  EXPECT_EQ(platform().smc.open(service, connection), korvel::kernSuccess);
  EXPECT_NE(connection, 0U);
  EXPECT_EQ(platform().smc.objectRelease(service), korvel::kernSuccess);
  EXPECT_EQ(platform().smc.close(connection), korvel::kernSuccess);
}

TEST_P(SMCUserClientContract, WithoutTheServiceThereIsNoName) {
  rig->machine([](Machine& mac) { mac.smc.servicePresent = false; });
  EXPECT_EQ(platform().smc.matchAppleSMC(), 0U);
}

TEST_P(SMCUserClientContract, ARefusedOpenGivesItsCodeAndLeavesTheName) {
  rig->machine([](Machine& mac) { mac.smc.openRefusal = korvel::ioReturnNotPrivileged; });
  const korvel::ObjectRef service = platform().smc.matchAppleSMC();
  korvel::ConnectionRef connection = 77;
  EXPECT_EQ(platform().smc.open(service, connection), korvel::ioReturnNotPrivileged);
  EXPECT_EQ(connection, 77U);
  platform().smc.objectRelease(service);
}

TEST_P(SMCUserClientContract, EightyBytesGoInAndEightyComeBack) {
  const OpenSMC open(platform().smc);
  ASSERT_EQ(open.result, korvel::kernSuccess);
  const Block input = makeBlock("CHTE", keyInfoCommand);
  Block output{};
  ASSERT_EQ(platform().smc.callStruct(open.connection, input, output), korvel::kernSuccess);
  EXPECT_EQ(output[resultField], 0);
  EXPECT_EQ(output[sizeField], 4);
}

TEST_P(SMCUserClientContract, WhatIsWrittenIsReadBack) {
  const OpenSMC open(platform().smc);
  Block write = makeBlock("CHTE", writeCommand);
  write[sizeField] = 4;
  write[bytesField] = 1;
  Block output{};
  ASSERT_EQ(platform().smc.callStruct(open.connection, write, output), korvel::kernSuccess);
  EXPECT_EQ(output[resultField], 0);
  rig->machine([](Machine& mac) {
    EXPECT_EQ(mac.smc.value("CHTE"), (std::vector<std::uint8_t>{1, 0, 0, 0}));
  });
  Block read = makeBlock("CHTE", readCommand);
  read[sizeField] = 4;
  Block answer{};
  ASSERT_EQ(platform().smc.callStruct(open.connection, read, answer), korvel::kernSuccess);
  EXPECT_EQ(answer[bytesField], 1);
  EXPECT_EQ(answer[bytesField + 1], 0);
}

TEST_P(SMCUserClientContract, AnUnknownKeyIsAResultOfTheSMCNotOfTheCall) {
  const OpenSMC open(platform().smc);
  const Block input = makeBlock("ZZZZ", keyInfoCommand);
  Block output{};
  EXPECT_EQ(platform().smc.callStruct(open.connection, input, output), korvel::kernSuccess);
  EXPECT_EQ(output[resultField], 132);
}

TEST_P(SMCUserClientContract, ANameThatIsNoConnectionFails) {
  const Block input = makeBlock("CHTE", keyInfoCommand);
  Block output{};
  EXPECT_NE(platform().smc.callStruct(0x999, input, output), korvel::kernSuccess);
  korvel::ConnectionRef closed = 0;
  {
    const OpenSMC open(platform().smc);
    closed = open.connection;
  }
  EXPECT_NE(platform().smc.callStruct(closed, input, output), korvel::kernSuccess);
}

TEST_P(SMCUserClientContract, AStaleConnectionSaysSoAndAFreshOneWorks) {
  const OpenSMC stale(platform().smc);
  rig->machine([](Machine& mac) { mac.smc.invalidateConnections(korvel::ioReturnNoDevice); });
  const Block input = makeBlock("CHTE", keyInfoCommand);
  Block output{};
  EXPECT_EQ(platform().smc.callStruct(stale.connection, input, output), korvel::ioReturnNoDevice);
  const OpenSMC fresh(platform().smc);
  EXPECT_EQ(platform().smc.callStruct(fresh.connection, input, output), korvel::kernSuccess);
}

// ---- IORegistry

TEST_P(IORegistryContract, AServiceIsFoundByItsClassAndHasProperties) {
  const korvel::ObjectRef battery = platform().registry.getMatchingService("AppleSmartBattery");
  ASSERT_NE(battery, 0U);
  EXPECT_EQ(platform().registry.createProperty(battery, "ExternalConnected").boolean(), true);
  EXPECT_TRUE(platform().registry.createProperty(battery, "NoSuchProperty").isAbsent());
  EXPECT_TRUE(platform().registry.conformsTo(battery, "AppleSmartBattery"));
  EXPECT_FALSE(platform().registry.conformsTo(battery, "IOPMrootDomain"));
  EXPECT_EQ(platform().registry.objectRelease(battery), korvel::kernSuccess);
}

TEST_P(IORegistryContract, AnUnknownClassHasNoService) {
  EXPECT_EQ(platform().registry.getMatchingService("NoSuchClass"), 0U);
}

TEST_P(IORegistryContract, AllPropertiesComeAsOneDictionary) {
  const korvel::ObjectRef battery = platform().registry.getMatchingService("AppleSmartBattery");
  korvel::PropertyValue properties;
  ASSERT_EQ(platform().registry.createProperties(battery, properties), korvel::kernSuccess);
  ASSERT_NE(properties.dictionary(), nullptr);
  EXPECT_EQ(properties["ExternalConnected"],
            platform().registry.createProperty(battery, "ExternalConnected"));
  platform().registry.objectRelease(battery);
}

TEST_P(IORegistryContract, PropertiesAreFreshWithEveryCall) {
  const korvel::ObjectRef battery = platform().registry.getMatchingService("AppleSmartBattery");
  rig->machine([](Machine& mac) { mac.adapter.disconnect(); });
  EXPECT_EQ(platform().registry.createProperty(battery, "ExternalConnected").boolean(), false);
  platform().registry.objectRelease(battery);
}

TEST_P(IORegistryContract, AnIteratorWalksAllDescendantsAndEndsWithZero) {
  use("two-banks");
  korvel::IORegistry& registry = platform().registry;
  const korvel::ObjectRef battery = registry.getMatchingService("AppleSmartBattery");
  korvel::ObjectRef iterator = 0;
  ASSERT_EQ(
      registry.createIterator(battery, "IOService", korvel::ioRegistryIterateRecursively, iterator),
      korvel::kernSuccess);
  int banks = 0;
  for (korvel::ObjectRef each = registry.iteratorNext(iterator); each != 0;
       each = registry.iteratorNext(iterator)) {
    if (registry.conformsTo(each, "AppleSmartBatteryBank")) ++banks;
    EXPECT_EQ(registry.objectRelease(each), korvel::kernSuccess);
  }
  EXPECT_EQ(banks, 2);
  EXPECT_EQ(registry.iteratorNext(iterator), 0U);
  EXPECT_EQ(registry.objectRelease(iterator), korvel::kernSuccess);
  EXPECT_EQ(registry.objectRelease(battery), korvel::kernSuccess);
}

TEST_P(IORegistryContract, ANameThatWasGivenBackIsNoNameAnyMore) {
  korvel::IORegistry& registry = platform().registry;
  const korvel::ObjectRef battery = registry.getMatchingService("AppleSmartBattery");
  ASSERT_EQ(registry.objectRelease(battery), korvel::kernSuccess);
  korvel::PropertyValue properties;
  EXPECT_NE(registry.createProperties(battery, properties), korvel::kernSuccess);
  EXPECT_TRUE(registry.createProperty(battery, "ExternalConnected").isAbsent());
}

// ---- PowerSources

TEST_P(PowerSourcesContract, TheBatteryIsDescribed) {
  rig->machine([](Machine& mac) { mac.battery.setPercent(64); });
  korvel::PowerSources& sources = platform().powerSources;
  const korvel::HandleRef info = sources.copyInfo();
  ASSERT_NE(info, 0U);
  const korvel::PowerSourceList list = sources.copyList(info);
  ASSERT_TRUE(list.isArray);
  ASSERT_EQ(list.elements.size(), 1U);
  const korvel::PropertyValue description = sources.getDescription(info, list.elements[0]);
  EXPECT_EQ(description["Current Capacity"].integer(), 64);
  sources.release(list.handle);
  sources.release(info);
}

TEST_P(PowerSourcesContract, ASnapshotKeepsWhatItSaw) {
  rig->machine([](Machine& mac) { mac.battery.setPercent(64); });
  korvel::PowerSources& sources = platform().powerSources;
  const korvel::HandleRef info = sources.copyInfo();
  const korvel::PowerSourceList list = sources.copyList(info);
  rig->machine([](Machine& mac) { mac.battery.setPercent(30); });
  ASSERT_FALSE(list.elements.empty());
  EXPECT_EQ(sources.getDescription(info, list.elements[0])["Current Capacity"].integer(), 64);
  sources.release(list.handle);
  sources.release(info);
}

TEST_P(PowerSourcesContract, AMachineThatAnswersNothingGivesNoSnapshot) {
  rig->machine([](Machine& mac) { mac.powerSources.snapshotFails = true; });
  EXPECT_EQ(platform().powerSources.copyInfo(), 0U);
}

TEST_P(PowerSourcesContract, AListThatIsNoArraySaysSo) {
  rig->machine([](Machine& mac) { mac.powerSources.listIsNotArray = true; });
  const korvel::HandleRef info = platform().powerSources.copyInfo();
  const korvel::PowerSourceList list = platform().powerSources.copyList(info);
  EXPECT_FALSE(list.isArray);
  EXPECT_NE(list.handle, 0U);
  platform().powerSources.release(list.handle);
  platform().powerSources.release(info);
}

TEST_P(PowerSourcesContract, SourcesKeepTheirOrder) {
  use("ups-first");
  korvel::PowerSources& sources = platform().powerSources;
  const korvel::HandleRef info = sources.copyInfo();
  const korvel::PowerSourceList list = sources.copyList(info);
  ASSERT_EQ(list.elements.size(), 2U);
  const korvel::PropertyValue first = sources.getDescription(info, list.elements[0]);
  const korvel::PropertyValue second = sources.getDescription(info, list.elements[1]);
  ASSERT_NE(second["Type"].text(), nullptr);
  EXPECT_EQ(*second["Type"].text(), "InternalBattery");
  EXPECT_NE(first["Type"], second["Type"]);
  sources.release(list.handle);
  sources.release(info);
}

}  // namespace virtualmac
