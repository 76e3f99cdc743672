#include <gtest/gtest.h>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct SMCTest : OnBench {
  SMCTest() : OnBench("both-families") {}

  Block call(const Block& input, korvel::KernReturn expected = korvel::kernSuccess) {
    Block output{};
    EXPECT_EQ(helper->smc.callStruct(connection, input, output), expected);
    return output;
  }

  korvel::ConnectionRef connection = openSMC(*helper);
};

TEST_F(SMCTest, KeyInfoTellsSizeTypeAndAttributes) {
  const Block output = call(commandBlock(keyInfoCommand, "CHTE"));
  EXPECT_EQ(resultIn(output), smcResultSuccess);
  EXPECT_EQ(sizeIn(output), 4U);
  EXPECT_EQ(typeIn(output), 0x75693332U);  // "ui32"
  EXPECT_EQ(output[36], 0xd0);
}

TEST_F(SMCTest, WrittenBytesReadBack) {
  EXPECT_EQ(resultIn(call(commandBlock(writeCommand, "CHTE", 4, {1, 0, 0, 0}))), smcResultSuccess);
  const Block output = call(commandBlock(readCommand, "CHTE", 4));
  EXPECT_EQ(resultIn(output), smcResultSuccess);
  EXPECT_EQ(bytesIn(output, 5), (Bytes{1, 0, 0, 0, 0}));
  EXPECT_EQ(takeLines("smc"), "0.000 smc   CHTE <- 01 00 00 00\n");
  EXPECT_EQ(mac.smc.writeCount("CHTE"), 1U);
  EXPECT_EQ(mac.smc.totalReads(), 1U);
}

TEST_F(SMCTest, AnUnknownKeyIsNotFoundByEveryCommand) {
  for (const std::uint8_t command : {readCommand, writeCommand, keyInfoCommand}) {
    EXPECT_EQ(resultIn(call(commandBlock(command, "XXXX", 1))), smcResultKeyNotFound);
  }
  EXPECT_EQ(mac.smc.totalWrites(), 0U);
}

TEST_F(SMCTest, AnUnknownCommandIsRefused) {
  EXPECT_EQ(resultIn(call(commandBlock(7, "CHTE", 4))), smcResultBadCommand);
}

TEST_F(SMCTest, AWrongSizeIsRefused) {
  EXPECT_EQ(resultIn(call(commandBlock(readCommand, "CHTE", 1))), smcResultSizeMismatch);
  EXPECT_EQ(resultIn(call(commandBlock(writeCommand, "CHTE", 1, {1}))), smcResultSizeMismatch);
  EXPECT_EQ(takeLines("smc"), "0.000 smc   CHTE <- 01 refused (result 135)\n");
  EXPECT_EQ(mac.smc.value("CHTE"), (Bytes{0, 0, 0, 0}));
}

TEST_F(SMCTest, AttributesDecideWhatMayBeReadAndWritten) {
  mac.smc.addKey(SMCKeyProfile{"RONL", 1, "ui8 ", 0x80, {7}});
  mac.smc.addKey(SMCKeyProfile{"WONL", 1, "ui8 ", 0x40, {7}});
  EXPECT_EQ(resultIn(call(commandBlock(writeCommand, "RONL", 1, {1}))), smcResultNotWritable);
  EXPECT_EQ(bytesIn(call(commandBlock(readCommand, "RONL", 1)), 1), (Bytes{7}));
  EXPECT_EQ(resultIn(call(commandBlock(readCommand, "WONL", 1))), smcResultNotReadable);
  EXPECT_EQ(resultIn(call(commandBlock(writeCommand, "WONL", 1, {1}))), smcResultSuccess);
}

TEST_F(SMCTest, AKeyLargerThanTheBlockShowsItsFirst32Bytes) {
  mac.smc.addKey(SMCKeyProfile{"WIDE", 40, "ch8*", 0xd0, Bytes(40, 9)});
  EXPECT_EQ(sizeIn(call(commandBlock(keyInfoCommand, "WIDE"))), 40U);
  const Block output = call(commandBlock(readCommand, "WIDE", 40));
  EXPECT_EQ(resultIn(output), smcResultSuccess);
  EXPECT_EQ(bytesIn(output, 32), Bytes(32, 9));
}

TEST_F(SMCTest, AWriteOfAWideKeyChangesOnlyWhatTheBlockHolds) {
  mac.smc.addKey(SMCKeyProfile{"WIDE", 40, "ch8*", 0xd0, Bytes(40, 9)});
  EXPECT_EQ(resultIn(call(commandBlock(writeCommand, "WIDE", 40, Bytes(32, 1)))), smcResultSuccess);
  Bytes expected(40, 9);
  std::fill_n(expected.begin(), 32, std::uint8_t{1});
  EXPECT_EQ(mac.smc.value("WIDE"), expected);
}

TEST_F(SMCTest, ForbiddenKeysAreToldLoudlyAndCounted) {
  mac.smc.addKey(SMCKeyProfile{"BCLM", 1, "ui8 ", 0xd0, {100}});
  call(commandBlock(writeCommand, "BCLM", 1, {80}));
  EXPECT_EQ(takeLines("smc"), "0.000 smc   BCLM <- 50 FORBIDDEN KEY\n");
  EXPECT_EQ(mac.smc.forbiddenWrites(), 1U);
}

TEST_F(SMCTest, ASilentRefusalSucceedsAndKeepsTheValue) {
  fault("smc-silent-refusal CHTE");
  EXPECT_EQ(resultIn(call(commandBlock(writeCommand, "CHTE", 4, {1, 0, 0, 0}))), smcResultSuccess);
  EXPECT_EQ(bytesIn(call(commandBlock(readCommand, "CHTE", 4)), 4), (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(takeLines("smc"),
            "0.000 smc   CHTE <- 01 00 00 00 ignored (value stays 00 00 00 00)\n");
  EXPECT_FALSE(mac.smc.chargingInhibited());
}

TEST_F(SMCTest, AResultOnDemandAnswersEveryCommandOfItsKeyOnly) {
  fault("smc-result CHTE 132");
  for (const std::uint8_t command : {readCommand, writeCommand, keyInfoCommand}) {
    EXPECT_EQ(resultIn(call(commandBlock(command, "CHTE", 4))), 132);
  }
  EXPECT_EQ(resultIn(call(commandBlock(keyInfoCommand, "CHIE"))), smcResultSuccess);
  EXPECT_EQ(takeLines("smc"), "0.000 smc   CHTE <- 00 00 00 00 refused (result 132)\n");
}

TEST_F(SMCTest, AWriteResultLeavesReadsAlone) {
  fault("smc-write-result CHTE 1");
  EXPECT_EQ(resultIn(call(commandBlock(writeCommand, "CHTE", 4, {1, 0, 0, 0}))), 1);
  EXPECT_EQ(resultIn(call(commandBlock(readCommand, "CHTE", 4))), smcResultSuccess);
}

TEST_F(SMCTest, JunkFollowsTheLastByteThatSaysSomething) {
  fault("smc-junk CHTE 5 6");
  call(commandBlock(writeCommand, "CHTE", 4, {1, 0, 0, 0}));
  EXPECT_EQ(bytesIn(call(commandBlock(readCommand, "CHTE", 4)), 4), (Bytes{1, 5, 6, 0}));
  EXPECT_EQ(mac.smc.value("CHTE"), (Bytes{1, 0, 0, 0}));
}

TEST_F(SMCTest, JunkNeverTakesThePlaceOfAValueOfZeros) {
  fault("smc-junk CHTE 1");
  EXPECT_EQ(bytesIn(call(commandBlock(readCommand, "CHTE", 4)), 4), (Bytes{0, 1, 0, 0}))
      << "not 01 00 00 00, which is another value";
  fault("smc-junk CHIE 8");
  EXPECT_EQ(bytesIn(call(commandBlock(readCommand, "CHIE", 1)), 2), (Bytes{0, 8}))
      << "a key of one byte keeps it";
}

TEST_F(SMCTest, AStatedSizeGoesIntoKeyInfoOnly) {
  fault("smc-size CHTE 2");
  EXPECT_EQ(sizeIn(call(commandBlock(keyInfoCommand, "CHTE"))), 2U);
  EXPECT_EQ(resultIn(call(commandBlock(writeCommand, "CHTE", 2, {1, 0}))), smcResultSizeMismatch);
}

TEST_F(SMCTest, StaleConnectionsAnswerTheirCodeUntilOneIsOpenedAnew) {
  mac.smc.invalidateConnections(korvel::ioReturnNoDevice);
  Block output;
  output.fill(0xee);
  const Block input = commandBlock(readCommand, "CHTE", 4);
  EXPECT_EQ(helper->smc.callStruct(connection, input, output), korvel::ioReturnNoDevice);
  EXPECT_EQ(output[40], 0xee) << "a failed call leaves the output alone";
  EXPECT_EQ(helper->smc.close(connection), korvel::kernSuccess);
  connection = openSMC(*helper);
  EXPECT_EQ(resultIn(call(input)), smcResultSuccess);
}

TEST_F(SMCTest, AReopenThatFailsGivesNoConnection) {
  fault("smc-reopen-fails -536870174");
  call(commandBlock(readCommand, "CHTE", 4), korvel::ioReturnNotOpen);
  korvel::ConnectionRef reopened = 77;
  const korvel::ObjectRef service = helper->smc.matchAppleSMC();
  EXPECT_EQ(helper->smc.open(service, reopened), -536870174);
  EXPECT_EQ(reopened, 77U) << "written on success only";
  fault("smc-reopen-fails", false);
  EXPECT_EQ(helper->smc.open(service, reopened), korvel::kernSuccess);
}

TEST_F(SMCTest, ADeadOrZeroNameIsAnInvalidDestination) {
  Block output{};
  const Block input = commandBlock(readCommand, "CHTE", 4);
  EXPECT_EQ(helper->smc.callStruct(0, input, output), 268435459);
  EXPECT_EQ(helper->smc.close(connection), korvel::kernSuccess);
  EXPECT_EQ(helper->smc.callStruct(connection, input, output), 268435459);
  EXPECT_EQ(helper->smc.close(connection), 268435459);
}

TEST_F(SMCTest, AMissingServiceIsNotMatched) {
  fault("smc-missing");
  EXPECT_EQ(helper->smc.matchAppleSMC(), 0U);
  call(commandBlock(readCommand, "CHTE", 4), korvel::ioReturnNoDevice);
}

TEST_F(SMCTest, OnlyItsOwnServiceOpens) {
  korvel::ConnectionRef opened = 0;
  const korvel::ObjectRef battery = helper->registry.getMatchingService("AppleSmartBattery");
  EXPECT_EQ(helper->smc.open(battery, opened), korvel::ioReturnBadArgument);
  EXPECT_EQ(helper->smc.open(0, opened), machSendInvalidDest);
}

TEST_F(SMCTest, ConnectionsBelongToTheirProcess) {
  const auto other = mac.startProcess(500);
  EXPECT_EQ(other->smc.openConnections(), 0U);
  EXPECT_EQ(helper->smc.openConnections(), 1U);
  mac.endProcess(412);
  EXPECT_EQ(helper->smc.openConnections(), 0U);
}

TEST_F(SMCTest, ARemovedKeyComesBackWithItsFirstValue) {
  call(commandBlock(writeCommand, "CHTE", 4, {1, 0, 0, 0}));
  fault("smc-key-missing CHTE");
  EXPECT_EQ(resultIn(call(commandBlock(keyInfoCommand, "CHTE"))), smcResultKeyNotFound);
  fault("smc-key-missing CHTE", false);
  EXPECT_EQ(mac.smc.value("CHTE"), (Bytes{0, 0, 0, 0}));
}

// The hardware must interpret every pair of values that the helper may leave.
TEST_F(SMCTest, TheOlderPairInhibitsOnlyTogether) {
  struct Case {
    std::uint8_t first, second;
    bool inhibits;
  };
  for (const auto& [first, second, inhibits] :
       {Case{0, 0, false}, Case{2, 0, false}, Case{0, 2, false}, Case{2, 2, true}}) {
    mac.smc.setValue("CH0B", {first});
    mac.smc.setValue("CH0C", {second});
    EXPECT_EQ(mac.smc.chargingInhibited(), inhibits) << int{first} << int{second};
  }
}

TEST_F(SMCTest, EachDischargeKeyInhibitsTheInflow) {
  for (const auto& [key, value] :
       {std::pair{"CHIE", 8}, std::pair{"CH0I", 1}, std::pair{"CH0J", 1}}) {
    mac.smc.setValue(key, {static_cast<std::uint8_t>(value)});
    EXPECT_TRUE(mac.smc.inflowInhibited()) << key;
    EXPECT_TRUE(mac.smc.dropInflowInhibit());
    EXPECT_FALSE(mac.smc.inflowInhibited()) << key;
  }
  EXPECT_FALSE(mac.smc.dropInflowInhibit());
}

}  // namespace
}  // namespace virtualmac
