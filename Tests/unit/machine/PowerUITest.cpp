#include <gtest/gtest.h>

#include "Tests/unit/machine/Bench.h"

namespace virtualmac {
namespace {

constexpr const char* framework = "/System/Library/PrivateFrameworks/PowerUI.framework/PowerUI";
constexpr const char* className = "PowerUISmartChargeClient";

class PowerUITest : public ::testing::Test {
 protected:
  /// Makes a client in the helper's steps; returns 0 when a step returned nothing.
  korvel::HandleRef makeClient() {
    if (runtime.dlopen(framework, korvel::dlopenNow) == 0) return 0;
    const korvel::HandleRef cls = runtime.classFromString(className);
    if (cls == 0 || !runtime.isClass(cls)) return 0;
    const korvel::HandleRef alloc = runtime.getClassMethod(cls, "alloc");
    const korvel::HandleRef init = runtime.getInstanceMethod(cls, "initWithClientName:");
    if (alloc == 0 || init == 0) return 0;
    return runtime.callInit(init, runtime.callAlloc(alloc, cls), "Korvel");
  }

  Bench bench{"native-only"};
  SmartChargeClient& runtime = bench.helper->smartCharge;
};

TEST_F(PowerUITest, AClientReadsOffersAndSetsTheLimit) {
  const korvel::HandleRef client = makeClient();
  ASSERT_NE(client, 0U);
  EXPECT_TRUE(runtime.callBoolean(client, "isMCLSupported"));
  korvel::ErrorSlot error;
  const korvel::PropertyValue offered =
      runtime.callObject(client, "availableChargeLimitsWithError:", error);
  ASSERT_NE(offered.array(), nullptr);
  EXPECT_EQ(offered.array()->front().integer(), 80);
  EXPECT_TRUE(runtime.callSetUInt8(client, "setMCLLimit:error:", 85, error));
  EXPECT_EQ(runtime.callInt32(client, "getMCLLimitWithError:", error), 85);
  EXPECT_FALSE(error.has_value());
  EXPECT_TRUE(runtime.callSetUInt8(client, "setMCLLimit:error:", 0, error));
  EXPECT_EQ(bench.takeLines("power"),
            "0.000 power native limit 85 (pid 412)\n0.000 power native limit none (pid 412)\n");
}

TEST_F(PowerUITest, AllFiveMethodsAnswerAndNoOther) {
  const korvel::HandleRef client = makeClient();
  for (const char* selector : {"isMCLSupported", "isMCLCurrentlyEnabled:", "getMCLLimitWithError:",
                               "availableChargeLimitsWithError:", "setMCLLimit:error:"}) {
    EXPECT_TRUE(runtime.respondsToSelector(client, selector)) << selector;
    bench.fault("powerui-method-missing " + std::string(selector));
    EXPECT_FALSE(runtime.respondsToSelector(client, selector)) << selector;
  }
  EXPECT_FALSE(runtime.respondsToSelector(client, "description"));
  EXPECT_FALSE(runtime.respondsToSelector(0, "isMCLSupported"));
}

TEST_F(PowerUITest, EachMissingPieceGivesNoClient) {
  for (const char* fault :
       {"powerui-missing", "powerui-class-missing", "powerui-method-missing alloc",
        "powerui-method-missing initWithClientName:", "powerui-init-fails"}) {
    Bench other{"native-only"};
    other.fault(fault);
    SmartChargeClient& missing = other.helper->smartCharge;
    const bool loaded = missing.dlopen(framework, korvel::dlopenNow) != 0;
    const korvel::HandleRef cls = missing.classFromString(className);
    const korvel::HandleRef alloc = missing.getClassMethod(cls, "alloc");
    const korvel::HandleRef init = missing.getInstanceMethod(cls, "initWithClientName:");
    const korvel::HandleRef client =
        missing.callInit(init, missing.callAlloc(alloc, cls), "Korvel");
    EXPECT_EQ(client, 0U) << fault;
    EXPECT_EQ(loaded, std::string_view(fault) != "powerui-missing");
  }
  bench.mac.powerUI.classIsNotAClass = true;
  EXPECT_EQ(makeClient(), 0U);
}

TEST_F(PowerUITest, AFailedInitTakesTheAllocatedObjectAlong) {
  bench.fault("powerui-init-fails");
  makeClient();
  EXPECT_EQ(runtime.liveObjects(), 0U);
}

TEST_F(PowerUITest, ErrorsFillTheirSlots) {
  const korvel::HandleRef client = makeClient();
  bench.fault("powerui-error no luck today");
  bench.fault("powerui-read-error cannot read");
  bench.fault("powerui-offers-error none");
  korvel::ErrorSlot error;
  EXPECT_FALSE(runtime.callSetUInt8(client, "setMCLLimit:error:", 85, error));
  EXPECT_EQ(error, "no luck today");
  EXPECT_EQ(runtime.callInt32(client, "getMCLLimitWithError:", error), 0);
  EXPECT_EQ(error, "cannot read");
  runtime.callObject(client, "availableChargeLimitsWithError:", error);
  EXPECT_EQ(error, "none");
  EXPECT_EQ(bench.takeLines("power"), "0.000 power native limit 85 refused (pid 412)\n");
}

TEST_F(PowerUITest, ARefusalAndAnIgnoredLimitHaveNoError) {
  const korvel::HandleRef client = makeClient();
  korvel::ErrorSlot error;
  bench.fault("powerui-refuses");
  EXPECT_FALSE(runtime.callSetUInt8(client, "setMCLLimit:error:", 85, error));
  bench.fault("powerui-refuses", false);
  bench.fault("powerui-keeps-limit");
  EXPECT_TRUE(runtime.callSetUInt8(client, "setMCLLimit:error:", 85, error));
  EXPECT_FALSE(error.has_value());
  EXPECT_EQ(bench.mac.powerUI.currentLimit(), 0);
  EXPECT_EQ(bench.takeLines("power"),
            "0.000 power native limit 85 refused (pid 412)\n"
            "0.000 power native limit 85 ignored (pid 412)\n");
}

TEST_F(PowerUITest, TheLimitOutlivesTheClientAndAPowerLoss) {
  const korvel::HandleRef client = makeClient();
  korvel::ErrorSlot error;
  runtime.callSetUInt8(client, "setMCLLimit:error:", 90, error);
  runtime.release(client);
  EXPECT_EQ(runtime.liveObjects(), 0U);
  EXPECT_FALSE(runtime.callBoolean(client, "isMCLSupported"));
  bench.mac.powerLoss();
  EXPECT_EQ(bench.mac.powerUI.currentLimit(), 90);
}

TEST_F(PowerUITest, WithoutTheFrameworkTheClassIsUnknown) {
  EXPECT_EQ(runtime.classFromString(className), 0U) << "not loaded yet";
  Bench other{"newer-keys"};
  EXPECT_EQ(other.helper->smartCharge.dlopen(framework, korvel::dlopenNow), 0U);
}

}  // namespace
}  // namespace virtualmac
