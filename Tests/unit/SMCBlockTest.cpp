// The 80 bytes that go to the user client, as they go.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "SMCWriter.h"
#include "Tests/unit/FakesLog.h"
#include "Tests/unit/ScriptedSMC.h"

namespace korvel {
namespace {

using Block = test::ScriptedSMC::Block;

class SMCBlockTest : public testing::Test {
 protected:
  SMCBlockTest() {
    smc.add("CHTE", 0x0000000A, {}, "hex ");
    smc.add("BIGK", 0x01020304, {}, "\xA1\xB2\xC3\xD4", 0xFF);
  }
  static Block commandOnCHTE(std::uint8_t command) {
    Block golden{0x45, 0x54, 0x48, 0x43};  // "CHTE" as a little-endian 32-bit code
    golden[42] = command;
    return golden;
  }
  static Block withSizeAndType(Block golden) {
    golden[28] = 0x0A;
    golden[32] = 0x20;  // "hex " as a little-endian 32-bit code
    golden[33] = 0x78;
    golden[34] = 0x65;
    golden[35] = 0x68;
    return golden;
  }

  test::FakeLog log;
  test::ScriptedSMC smc;
  SMCWriter writer{smc, Logger(log, "SMCWriter")};
};

TEST_F(SMCBlockTest, AKeyInfoBlockHoldsKeyAndCommand) {
  EXPECT_TRUE(writer.isPresent("CHTE"));
  ASSERT_EQ(smc.inputs.size(), 1U);
  EXPECT_EQ(smc.inputs[0], commandOnCHTE(9));
}

TEST_F(SMCBlockTest, AReadBlockHoldsSizeAndTypeToo) {
  EXPECT_TRUE(writer.readKey("CHTE"));
  ASSERT_EQ(smc.inputs.size(), 2U);
  EXPECT_EQ(smc.inputs[1], withSizeAndType(commandOnCHTE(5)));
}

TEST_F(SMCBlockTest, AWriteBlockHoldsThePayloadToo) {
  EXPECT_TRUE(writer.writeKey("CHTE", ByteList{1, 2, 3}));
  Block golden = withSizeAndType(commandOnCHTE(6));
  golden[48] = 1;
  golden[49] = 2;
  golden[50] = 3;
  ASSERT_EQ(smc.inputs.size(), 2U);
  EXPECT_EQ(smc.inputs[1], golden);
}

TEST_F(SMCBlockTest, AFullPayloadEndsWithTheBlock) {
  ByteList payload;
  for (std::uint8_t value = 1; value <= 32; ++value) payload.push_back(value);
  EXPECT_TRUE(writer.writeKey("BIGK", payload));
  const Block& block = smc.inputs.at(1);
  EXPECT_TRUE(std::ranges::equal(std::span(block).subspan(48), payload));
}

TEST_F(SMCBlockTest, AllFourBytesOfSizeAndTypeGoBackAsTheyCame) {
  EXPECT_TRUE(writer.readKey("BIGK"));
  const Block& block = smc.inputs.at(1);
  const auto field = [&](std::size_t offset) {
    return ByteList(block.begin() + static_cast<std::ptrdiff_t>(offset),
                    block.begin() + static_cast<std::ptrdiff_t>(offset) + 4);
  };
  EXPECT_EQ(field(28), (ByteList{0x04, 0x03, 0x02, 0x01}));
  EXPECT_EQ(field(32), (ByteList{0xD4, 0xC3, 0xB2, 0xA1}));
}

TEST_F(SMCBlockTest, AttributesAreNeverSent) {
  EXPECT_TRUE(writer.writeKey("BIGK", ByteList{1}));
  for (const Block& block : smc.inputs) EXPECT_EQ(block[36], 0);
}

TEST_F(SMCBlockTest, FieldsThatAreNotNamedStayZero) {
  EXPECT_TRUE(writer.writeKeyAndVerify("BIGK", ByteList(32, 0xFF)).result);
  ASSERT_EQ(smc.inputs.size(), 4U);
  for (const Block& block : smc.inputs) {
    for (std::size_t offset = 0; offset < block.size(); ++offset) {
      const bool named = offset < 4 || (offset >= 28 && offset < 36) || offset == 42 ||
                         (offset >= 48 && block[42] == 6);
      EXPECT_TRUE(named || block[offset] == 0) << "offset " << offset;
    }
  }
}

TEST(FourCharCodeTest, TheFirstCharacterIsTheMostSignificantByte) {
  EXPECT_EQ(fourCharCode("CHTE"), 0x43485445U);
  EXPECT_EQ(fourCharCode("CH0B"), 0x43483042U);
  EXPECT_EQ(fourCharCode(std::string_view("\0\0\0\1", 4)), 1U);
  EXPECT_EQ(fourCharCode("\xFF\xFF\xFF\xFF"), 0xFFFFFFFFU);
}

TEST(FourCharCodeDeathTest, AnyOtherLengthStopsTheProcess) {
  for (const char* key : {"", "CHT", "CHTEX", "CHÉ0"}) {
    EXPECT_DEATH(fourCharCode(key), "an SMC key name has exactly four bytes") << key;
  }
}

TEST_F(SMCBlockTest, OperationsWithAnImpossibleKeyStopTheProcessDeathTest) {
  EXPECT_DEATH(static_cast<void>(writer.readKey("LONGER")),
               "an SMC key name has exactly four bytes");
  EXPECT_DEATH(static_cast<void>(writer.writeKey("", ByteList{1})),
               "an SMC key name has exactly four bytes");
}

TEST(BytesToTupleTest, ThirtyTwoBytesAreTaken) {
  ByteList bytes(32, 7);
  bytes[31] = 9;
  const auto field = bytesToTuple(bytes);
  EXPECT_TRUE(std::ranges::equal(field, bytes));
}

TEST(BytesToTupleDeathTest, AnyOtherLengthStopsTheProcess) {
  for (const std::size_t size : {0U, 31U, 33U}) {
    EXPECT_DEATH(bytesToTuple(ByteList(size)), "an SMC payload field has exactly 32 bytes");
  }
}

}  // namespace
}  // namespace korvel
