#include "PowerUIChargeBackend.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Tests/unit/FakesLog.h"
#include "Tests/unit/RecordedMac.h"

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using virtualmac::SeamCall;

using RecordedRuntime = test::Recorded<SmartChargeRuntime>;

/// The machine's framework, with two answers that it never gives: a limit below zero, and a yes
/// with a filled error slot.
class AnsweringRuntime final : public RecordedRuntime {
 public:
  using RecordedRuntime::RecordedRuntime;
  std::optional<std::int32_t> limit;
  std::optional<bool> accepts;

  std::int32_t callInt32(HandleRef object, std::string_view selector, ErrorSlot& error) override {
    return limit ? *limit : RecordedRuntime::callInt32(object, selector, error);
  }
  bool callSetUInt8(HandleRef object, std::string_view selector, std::uint8_t value,
                    ErrorSlot& error) override {
    const bool accepted = RecordedRuntime::callSetUInt8(object, selector, value, error);
    return accepts.value_or(accepted);
  }
};

struct Bench {
  test::FakeLog log;
  test::RecordedMac mac;
  virtualmac::PowerUI& ui = mac.machine.powerUI;
  std::vector<std::string>& calls = mac.calls;
  AnsweringRuntime runtime{mac.seam.smartCharge, calls};

  Bench() {
    ui.frameworkPresent = true;
    ui.classPresent = true;
    ui.offeredLimits = PropertyValue::Array{80, 85, 90, 95, 100};
  }
  std::unique_ptr<PowerUIChargeBackend> made() {
    return PowerUIChargeBackend::make(runtime, Logger(log, "PowerUIChargeBackend"));
  }
  /// A backend, with what its making logged and called forgotten.
  std::unique_ptr<PowerUIChargeBackend> ready() {
    auto backend = made();
    EXPECT_NE(backend, nullptr);
    calls.clear();
    log.lines.clear();
    return backend;
  }
  [[nodiscard]] std::size_t ownedObjects() const { return mac.process->smartCharge.liveObjects(); }
  void expectNoBackend(const std::string& why) {
    EXPECT_EQ(made(), nullptr) << why;
    EXPECT_EQ(ownedObjects(), 0U) << why;
    EXPECT_THAT(log.lines, IsEmpty()) << why;
    std::erase_if(calls, [](const std::string& call) { return call.starts_with("release "); });
  }
};

class PowerUIChargeBackendTest : public testing::Test, protected Bench {
 protected:
  template <class Result>
  static std::string textOf(const Result& result) {
    return result ? std::to_string(*result) : result.error().description();
  }
};

TEST_F(PowerUIChargeBackendTest, MakingLooksEverythingUpInItsFixedOrder) {
  const auto backend = made();
  EXPECT_NE(backend, nullptr);
  EXPECT_THAT(
      calls,
      ElementsAre("dlopen /System/Library/PrivateFrameworks/PowerUI.framework/PowerUI 2",
                  "classFromString PowerUISmartChargeClient", "isClass 0x2f",
                  "getClassMethod 0x2f alloc", "callAlloc 0x33 0x2f",
                  "getInstanceMethod 0x2f initWithClientName:", "callInit 0x37 0x10f Korvel",
                  "respondsToSelector 0x20f isMCLSupported",
                  "respondsToSelector 0x20f isMCLCurrentlyEnabled:",
                  "respondsToSelector 0x20f getMCLLimitWithError:",
                  "respondsToSelector 0x20f availableChargeLimitsWithError:",
                  "respondsToSelector 0x20f setMCLLimit:error:", "callBoolean 0x20f isMCLSupported",
                  "callObject 0x20f availableChargeLimitsWithError:"));
  EXPECT_THAT(log.lines,
              ElementsAre("default PowerUIChargeBackend: PowerUI native charge backend ready — "
                          "limits=[80, 85, 90, 95, 100]"));
}

TEST_F(PowerUIChargeBackendTest, TheClientIsReleasedWithTheBackend) {
  auto backend = made();
  EXPECT_EQ(ownedObjects(), 1U);
  backend.reset();
  EXPECT_EQ(ownedObjects(), 0U);
}

TEST_F(PowerUIChargeBackendTest, AnythingMissingGivesNoBackendAndNoLine) {
  const std::vector<std::pair<std::string, void (*)(Bench&)>> losses = {
      {"framework", [](Bench& it) { it.ui.frameworkPresent = false; }},
      {"class", [](Bench& it) { it.ui.classPresent = false; }},
      {"an object class", [](Bench& it) { it.ui.classIsNotAClass = true; }},
      {"alloc", [](Bench& it) { it.ui.missingMethods = {"alloc"}; }},
      {"memory", [](Bench& it) { it.mac.faults.failNth(SeamCall::runtimeAlloc, 1, {}); }},
      {"init", [](Bench& it) { it.ui.missingMethods = {"initWithClientName:"}; }},
      {"an initialised object", [](Bench& it) { it.ui.initGivesNothing = true; }},
      {"isMCLSupported", [](Bench& it) { it.ui.missingMethods = {"isMCLSupported"}; }},
      {"isMCLCurrentlyEnabled:",
       [](Bench& it) { it.ui.missingMethods = {"isMCLCurrentlyEnabled:"}; }},
      {"getMCLLimitWithError:",
       [](Bench& it) { it.ui.missingMethods = {"getMCLLimitWithError:"}; }},
      {"availableChargeLimitsWithError:",
       [](Bench& it) { it.ui.missingMethods = {"availableChargeLimitsWithError:"}; }},
      {"setMCLLimit:error:", [](Bench& it) { it.ui.missingMethods = {"setMCLLimit:error:"}; }},
      {"support", [](Bench& it) { it.ui.supported = false; }},
      {"a list without error", [](Bench& it) { it.ui.offeredError = "no list"; }},
      {"a list", [](Bench& it) { it.ui.offeredLimits = {}; }},
      {"an array", [](Bench& it) { it.ui.offeredLimits = 100; }},
      {"numbers", [](Bench& it) { it.ui.offeredLimits = PropertyValue::Array{80, "90", 100}; }},
      {"numbers, not Booleans",
       [](Bench& it) { it.ui.offeredLimits = PropertyValue::Array{true, 100}; }},
      {"100", [](Bench& it) { it.ui.offeredLimits = PropertyValue::Array{80, 90}; }},
      {"any entry", [](Bench& it) { it.ui.offeredLimits = PropertyValue::Array{}; }}};
  for (const auto& [what, lose] : losses) {
    Bench bench;
    lose(bench);
    bench.expectNoBackend(what);
  }
}

TEST_F(PowerUIChargeBackendTest, AFailureEndsTheLookUps) {
  ui.frameworkPresent = false;
  expectNoBackend("framework");
  EXPECT_EQ(calls.size(), 1U);
  ui.frameworkPresent = true;
  ui.supported = false;
  expectNoBackend("support");
  EXPECT_EQ(calls.back(), "callBoolean 0x20f isMCLSupported");
}

TEST_F(PowerUIChargeBackendTest, EachAbsentSelectorEndsTheLookUpsWithItsOwn) {
  const std::vector<std::string> required = {
      "isMCLSupported", "isMCLCurrentlyEnabled:", "getMCLLimitWithError:",
      "availableChargeLimitsWithError:", "setMCLLimit:error:"};
  constexpr std::size_t callsOfMaking = 7;
  for (std::size_t absent = 0; absent < required.size(); ++absent) {
    Bench bench;
    bench.ui.missingMethods = {required[absent]};
    bench.expectNoBackend(required[absent]);
    EXPECT_EQ(bench.calls.back(), "respondsToSelector 0x20f " + required[absent]);
    EXPECT_EQ(bench.calls.size(), callsOfMaking + absent + 1);
  }
}

TEST_F(PowerUIChargeBackendTest, EachAbsentStepOfMakingEndsTheLookUps) {
  const std::vector<std::pair<std::string, void (*)(Bench&)>> losses = {
      {"classFromString PowerUISmartChargeClient", [](Bench& it) { it.ui.classPresent = false; }},
      {"isClass 0x2f", [](Bench& it) { it.ui.classIsNotAClass = true; }},
      {"getClassMethod 0x2f alloc", [](Bench& it) { it.ui.missingMethods = {"alloc"}; }},
      {"getInstanceMethod 0x2f initWithClientName:",
       [](Bench& it) { it.ui.missingMethods = {"initWithClientName:"}; }},
      {"callInit 0x37 0x10f Korvel", [](Bench& it) { it.ui.initGivesNothing = true; }}};
  for (const auto& [last, lose] : losses) {
    Bench bench;
    lose(bench);
    bench.expectNoBackend(last);
    EXPECT_EQ(bench.calls.back(), last);
  }
}

TEST_F(PowerUIChargeBackendTest, OfferedLimitsAreSortedAndOutliersDropped) {
  ui.offeredLimits = PropertyValue::Array{100, 80, 90, 150, 0};
  const auto backend = made();
  ASSERT_NE(backend, nullptr);
  EXPECT_THAT(backend->offeredLimits(), ElementsAre(80, 90, 100));
  EXPECT_THAT(log.lines, ElementsAre("default PowerUIChargeBackend: PowerUI native charge backend "
                                     "ready — limits=[80, 90, 100]"));
}

TEST_F(PowerUIChargeBackendTest, AnOfferedLimitOfExactlyOneIsKept) {
  ui.offeredLimits = PropertyValue::Array{100, 1, 0};
  auto backend = made();
  ASSERT_NE(backend, nullptr);
  EXPECT_THAT(backend->offeredLimits(), ElementsAre(1, 100));
  EXPECT_EQ(backend->snapped(0), 1);
  ui.offeredLimits = PropertyValue::Array{100.0, 1.0, 0.99};
  backend = made();
  ASSERT_NE(backend, nullptr);
  EXPECT_THAT(backend->offeredLimits(), ElementsAre(1, 100)) << "as reals";
}

TEST_F(PowerUIChargeBackendTest, AnOfferWithoutAHundredGivesNoBackend) {
  using Offer = PropertyValue::Array;
  for (const Offer& offer : {Offer{80, 90}, Offer{80, 90, 101}, Offer{80, 99}}) {
    Bench bench;
    bench.ui.offeredLimits = offer;
    bench.expectNoBackend("no 100 among the limits");
    EXPECT_EQ(bench.calls.back(), "callObject 0x20f availableChargeLimitsWithError:");
  }
}

TEST_F(PowerUIChargeBackendTest, OfferedRealsCountByTheirIntegerValue) {
  ui.offeredLimits =
      PropertyValue::Array{80.9, 100.0, 0.5, -3.0, 101.0, 1e300, -1e300, std::nan("")};
  const auto backend = made();
  ASSERT_NE(backend, nullptr);
  EXPECT_THAT(backend->offeredLimits(), ElementsAre(80, 100));
}

TEST_F(PowerUIChargeBackendTest, RequestsAreClampedAndNeverRounded) {
  ui.offeredLimits = PropertyValue::Array{80, 90, 100};
  const auto backend = ready();
  for (std::int64_t requested = -10; requested <= 200; ++requested) {
    const std::int64_t expected = requested < 80 ? 80 : requested > 100 ? 100 : requested;
    EXPECT_EQ(backend->snapped(requested), expected) << requested;
  }
  EXPECT_EQ(backend->snapped(INT64_MIN), 80);
  EXPECT_EQ(backend->snapped(INT64_MAX), 100);
}

TEST_F(PowerUIChargeBackendTest, ARequestIsSentAsItsClampedValueAndFullAsZero) {
  ui.offeredLimits = PropertyValue::Array{80, 90, 100};
  const auto backend = ready();
  const std::vector<std::pair<std::int64_t, std::string>> rows = {
      {50, "callSetUInt8 0x20f setMCLLimit:error: 80"},
      {85, "callSetUInt8 0x20f setMCLLimit:error: 85"},
      {100, "callSetUInt8 0x20f setMCLLimit:error: 0"},
      {120, "callSetUInt8 0x20f setMCLLimit:error: 0"}};
  for (const auto& [requested, call] : rows) {
    calls.clear();
    EXPECT_EQ(textOf(backend->setLimit(requested)), "1") << requested;
    EXPECT_THAT(calls, ElementsAre(call, "callInt32 0x20f getMCLLimitWithError:"));
  }
}

TEST_F(PowerUIChargeBackendTest, ASetLimitIsLoggedWithItsReadBack) {
  const auto backend = ready();
  EXPECT_EQ(textOf(backend->setLimit(50)), "1");
  EXPECT_EQ(textOf(backend->setLimit(100)), "1");
  EXPECT_THAT(log.lines, ElementsAre("default PowerUIChargeBackend: PowerUI setLimit(50) → snapped "
                                     "80 (raw=80, readback=80)",
                                     "default PowerUIChargeBackend: PowerUI setLimit(100) → "
                                     "snapped 100 (raw=0, readback=100)"));
}

TEST_F(PowerUIChargeBackendTest, AnotherReadBackIsNoErrorButNotVerified) {
  ui.keepsOldLimit = true;
  ui.setLimitByUser(90);
  const auto backend = ready();
  EXPECT_EQ(textOf(backend->setLimit(85)), "0");
  EXPECT_THAT(log.lines, ElementsAre("default PowerUIChargeBackend: PowerUI setLimit(85) → snapped "
                                     "85 (raw=85, readback=90)"));
}

TEST_F(PowerUIChargeBackendTest, ARefusalNamesTheClampedLimit) {
  ui.refuses = true;
  const auto backend = ready();
  EXPECT_EQ(textOf(backend->setLimit(85)), "PowerUI rejected charge limit 85");
  EXPECT_EQ(textOf(backend->setLimit(20)), "PowerUI rejected charge limit 80");
  EXPECT_EQ(textOf(backend->setLimit(100)), "PowerUI rejected charge limit 100");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(PowerUIChargeBackendTest, AFilledErrorSlotCountsBeforeTheAnswer) {
  for (const bool accepts : {true, false}) {
    Bench bench;
    bench.runtime.accepts = accepts;
    bench.ui.setError = "not now";
    const auto backend = bench.ready();
    EXPECT_EQ(textOf(backend->setLimit(85)), "PowerUI call failed: not now");
    EXPECT_THAT(bench.calls, ElementsAre("callSetUInt8 0x20f setMCLLimit:error: 85"));
    EXPECT_THAT(bench.log.lines, IsEmpty());
  }
}

TEST_F(PowerUIChargeBackendTest, AFailedReadBackFailsTheSetting) {
  ui.getError = "gone";
  const auto backend = ready();
  EXPECT_EQ(textOf(backend->setLimit(85)), "PowerUI call failed: gone");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(PowerUIChargeBackendTest, NoLimitReadsAsAHundred) {
  const auto backend = ready();
  ui.setLimitByUser(0);
  EXPECT_EQ(textOf(backend->readLimit()), "100");
  ui.setLimitByUser(85);
  EXPECT_EQ(textOf(backend->readLimit()), "85");
  runtime.limit = -1;
  EXPECT_EQ(textOf(backend->readLimit()), "-1");
  runtime.limit.reset();
  ui.getError = "gone";
  EXPECT_EQ(textOf(backend->readLimit()), "PowerUI call failed: gone");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(PowerUIChargeBackendTest, SettingAHundredIsVerifiedByAGetterThatSaysZero) {
  ui.keepsOldLimit = true;
  const auto backend = ready();
  ui.setLimitByUser(0);
  EXPECT_EQ(textOf(backend->setLimit(100)), "1");
  ui.setLimitByUser(80);
  EXPECT_EQ(textOf(backend->setLimit(100)), "0");
}

TEST_F(PowerUIChargeBackendTest, NothingIsRememberedBetweenCalls) {
  const auto backend = ready();
  EXPECT_EQ(textOf(backend->setLimit(85)), "1");
  EXPECT_EQ(textOf(backend->setLimit(85)), "1");
  EXPECT_THAT(calls, ElementsAre("callSetUInt8 0x20f setMCLLimit:error: 85",
                                 "callInt32 0x20f getMCLLimitWithError:",
                                 "callSetUInt8 0x20f setMCLLimit:error: 85",
                                 "callInt32 0x20f getMCLLimitWithError:"));
}

}  // namespace
}  // namespace korvel
