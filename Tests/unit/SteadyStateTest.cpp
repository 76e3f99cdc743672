// A tick comes every five seconds, so it must be cheap: one call to the SMC, nothing allocated.
#include <gtest/gtest.h>

#include <string>

#include "Logger.h"
#include "SMCWriter.h"
#include "Tests/Allocations.h"

namespace korvel {
namespace {

/// An SMC whose every key is one byte, without memory of its calls.
class BareSMC final : public SMCUserClient {
 public:
  std::uint8_t value = 0;
  int structCalls = 0;

  ObjectRef matchAppleSMC() override { return 1; }
  KernReturn open(ObjectRef /*service*/, ConnectionRef& connection) override {
    connection = 1;
    return kernSuccess;
  }
  KernReturn callStruct(ConnectionRef /*connection*/, SMCBlockView input,
                        SMCBlockSpan output) override {
    ++structCalls;
    output[28] = 1;
    if (input[42] == 6) value = input[48];
    output[48] = value;
    return kernSuccess;
  }
  KernReturn close(ConnectionRef /*connection*/) override { return kernSuccess; }
  KernReturn objectRelease(ObjectRef /*service*/) override { return kernSuccess; }
};

/// A log that only measures.
class BareLog final : public UnifiedLog {
 public:
  std::size_t length = 0;
  void emit(std::string_view /*subsystem*/, std::string_view /*category*/, LogLevel /*level*/,
            std::string_view text) override {
    length = text.size();
  }
};

TEST(SteadyStateTest, AVerifiedWriteOfTheHeldValueIsOneCallWithoutAnAllocation) {
  BareSMC smc;
  BareLog log;
  SMCWriter writer(smc, Logger(log, "SMCWriter"));
  const std::array<std::uint8_t, 1> payload = {2};
  EXPECT_TRUE(writer.writeKeyAndVerify("CH0B", payload).verified);
  smc.structCalls = 0;
  const std::int64_t before = test::allocations::made();
  const VerifiedWrite written = writer.writeKeyAndVerify("CH0B", payload);
  EXPECT_EQ(test::allocations::made(), before);
  EXPECT_EQ(smc.structCalls, 1);
  EXPECT_TRUE(written.verified);
}

TEST(SteadyStateTest, AReadAllocatesItsResultOnly) {
  BareSMC smc;
  BareLog log;
  SMCWriter writer(smc, Logger(log, "SMCWriter"));
  EXPECT_TRUE(writer.readKey("CH0B"));
  const std::int64_t before = test::allocations::made();
  const auto bytes = writer.readKey("CH0B");
  EXPECT_EQ(test::allocations::made(), before + 1);
  EXPECT_TRUE(bytes);
}

TEST(SteadyStateTest, ShortLinesAreRenderedWithoutAnAllocation) {
  BareLog unified;
  const Logger log(unified, "HelperImpl");
  const std::int64_t before = test::allocations::made();
  log.log("setChargeLimit(%{public}hhu) pid=%{public}d signingID=%{public}s", 80, 4711,
          "com.korvel.app");
  EXPECT_EQ(test::allocations::made(), before);
  EXPECT_EQ(unified.length,
            std::string_view("setChargeLimit(80) pid=4711 signingID=com.korvel.app").size());
}

TEST(SteadyStateTest, TheCounterSeesAllocations) {
  const std::int64_t before = test::allocations::made();
  const std::string text(100, 'x');
  EXPECT_GT(test::allocations::made(), before);
  EXPECT_EQ(text.size(), 100U);
}

}  // namespace
}  // namespace korvel
