#include "PowerUIChargeBackend.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "Tests/unit/FakesLog.h"
#include "Tests/unit/FakesRuntime.h"

namespace korvel {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PowerUIChargeBackendTest : public testing::Test {
 protected:
  std::unique_ptr<PowerUIChargeBackend> made() {
    return PowerUIChargeBackend::make(framework, Logger(log, "PowerUIChargeBackend"));
  }
  /// A backend, with what its making logged and called forgotten.
  std::unique_ptr<PowerUIChargeBackend> ready() {
    auto backend = made();
    EXPECT_NE(backend, nullptr);
    framework.calls.clear();
    log.lines.clear();
    return backend;
  }
  void expectNoBackend(const std::string& why) {
    EXPECT_EQ(made(), nullptr) << why;
    EXPECT_EQ(framework.ownedObjects, 0) << why;
    EXPECT_THAT(log.lines, IsEmpty()) << why;
  }
  template <class Result>
  static std::string textOf(const Result& result) {
    return result ? std::to_string(*result) : result.error().description();
  }

  test::FakeLog log;
  test::FakeSmartCharge framework;
};

TEST_F(PowerUIChargeBackendTest, MakingLooksEverythingUpInItsFixedOrder) {
  EXPECT_NE(made(), nullptr);
  EXPECT_THAT(
      framework.calls,
      ElementsAre("dlopen /System/Library/PrivateFrameworks/PowerUI.framework/PowerUI 2",
                  "class PowerUISmartChargeClient", "isClass", "class method alloc", "alloc",
                  "instance method initWithClientName:", "init Korvel", "responds isMCLSupported",
                  "responds isMCLCurrentlyEnabled:", "responds getMCLLimitWithError:",
                  "responds availableChargeLimitsWithError:", "responds setMCLLimit:error:",
                  "isMCLSupported", "availableChargeLimitsWithError:"));
  EXPECT_THAT(log.lines,
              ElementsAre("default PowerUIChargeBackend: PowerUI native charge backend ready — "
                          "limits=[80, 85, 90, 95, 100]"));
}

TEST_F(PowerUIChargeBackendTest, TheClientIsReleasedWithTheBackend) {
  auto backend = made();
  EXPECT_EQ(framework.ownedObjects, 1);
  backend.reset();
  EXPECT_EQ(framework.ownedObjects, 0);
}

TEST_F(PowerUIChargeBackendTest, AnythingMissingGivesNoBackendAndNoLine) {
  using Framework = test::FakeSmartCharge;
  const std::vector<std::pair<std::string, void (*)(Framework&)>> losses = {
      {"framework", [](Framework& it) { it.loads = false; }},
      {"class", [](Framework& it) { it.hasClass = false; }},
      {"an object class", [](Framework& it) { it.classIsClass = false; }},
      {"alloc", [](Framework& it) { it.hasAlloc = false; }},
      {"memory", [](Framework& it) { it.allocates = false; }},
      {"init", [](Framework& it) { it.hasInit = false; }},
      {"an initialised object", [](Framework& it) { it.initialises = false; }},
      {"isMCLSupported", [](Framework& it) { it.responds.erase("isMCLSupported"); }},
      {"isMCLCurrentlyEnabled:",
       [](Framework& it) { it.responds.erase("isMCLCurrentlyEnabled:"); }},
      {"getMCLLimitWithError:", [](Framework& it) { it.responds.erase("getMCLLimitWithError:"); }},
      {"availableChargeLimitsWithError:",
       [](Framework& it) { it.responds.erase("availableChargeLimitsWithError:"); }},
      {"setMCLLimit:error:", [](Framework& it) { it.responds.erase("setMCLLimit:error:"); }},
      {"support", [](Framework& it) { it.supported = false; }},
      {"a list without error", [](Framework& it) { it.offeredError = "no list"; }},
      {"a list", [](Framework& it) { it.offered = {}; }},
      {"an array", [](Framework& it) { it.offered = 100; }},
      {"numbers", [](Framework& it) { it.offered = PropertyValue::Array{80, "90", 100}; }},
      {"numbers, not Booleans",
       [](Framework& it) { it.offered = PropertyValue::Array{true, 100}; }},
      {"100", [](Framework& it) { it.offered = PropertyValue::Array{80, 90}; }},
      {"any entry", [](Framework& it) { it.offered = PropertyValue::Array{}; }}};
  for (const auto& [what, lose] : losses) {
    framework = {};
    lose(framework);
    expectNoBackend(what);
  }
}

TEST_F(PowerUIChargeBackendTest, AFailureEndsTheLookUps) {
  framework.loads = false;
  expectNoBackend("framework");
  EXPECT_EQ(framework.calls.size(), 1U);
  framework = {};
  framework.responds.erase("isMCLSupported");
  expectNoBackend("selector");
  EXPECT_EQ(framework.calls.back(), "responds isMCLSupported");
  framework = {};
  framework.supported = false;
  expectNoBackend("support");
  EXPECT_EQ(framework.calls.back(), "isMCLSupported");
}

TEST_F(PowerUIChargeBackendTest, EachAbsentSelectorEndsTheLookUpsWithItsOwn) {
  const std::vector<std::string> required = {
      "isMCLSupported", "isMCLCurrentlyEnabled:", "getMCLLimitWithError:",
      "availableChargeLimitsWithError:", "setMCLLimit:error:"};
  constexpr std::size_t callsOfMaking = 7;
  for (std::size_t absent = 0; absent < required.size(); ++absent) {
    framework = {};
    framework.responds.erase(required[absent]);
    expectNoBackend(required[absent]);
    EXPECT_EQ(framework.calls.back(), "responds " + required[absent]);
    EXPECT_EQ(framework.calls.size(), callsOfMaking + absent + 1);
  }
}

TEST_F(PowerUIChargeBackendTest, EachAbsentStepOfMakingEndsTheLookUps) {
  using Framework = test::FakeSmartCharge;
  const std::vector<std::pair<std::string, void (*)(Framework&)>> losses = {
      {"class PowerUISmartChargeClient", [](Framework& it) { it.hasClass = false; }},
      {"isClass", [](Framework& it) { it.classIsClass = false; }},
      {"class method alloc", [](Framework& it) { it.hasAlloc = false; }},
      {"instance method initWithClientName:", [](Framework& it) { it.hasInit = false; }},
      {"init Korvel", [](Framework& it) { it.initialises = false; }}};
  for (const auto& [last, lose] : losses) {
    framework = {};
    lose(framework);
    expectNoBackend(last);
    EXPECT_EQ(framework.calls.back(), last);
  }
}

TEST_F(PowerUIChargeBackendTest, OfferedLimitsAreSortedAndOutliersDropped) {
  framework.offered = PropertyValue::Array{100, 80, 90, 150, 0};
  const auto backend = made();
  ASSERT_NE(backend, nullptr);
  EXPECT_THAT(backend->offeredLimits(), ElementsAre(80, 90, 100));
  EXPECT_THAT(log.lines, ElementsAre("default PowerUIChargeBackend: PowerUI native charge backend "
                                     "ready — limits=[80, 90, 100]"));
}

TEST_F(PowerUIChargeBackendTest, AnOfferedLimitOfExactlyOneIsKept) {
  framework.offered = PropertyValue::Array{100, 1, 0};
  auto backend = made();
  ASSERT_NE(backend, nullptr);
  EXPECT_THAT(backend->offeredLimits(), ElementsAre(1, 100));
  EXPECT_EQ(backend->snapped(0), 1);
  framework.offered = PropertyValue::Array{100.0, 1.0, 0.99};
  backend = made();
  ASSERT_NE(backend, nullptr);
  EXPECT_THAT(backend->offeredLimits(), ElementsAre(1, 100)) << "as reals";
}

TEST_F(PowerUIChargeBackendTest, AnOfferWithoutAHundredGivesNoBackend) {
  using Offer = PropertyValue::Array;
  for (const Offer& offer : {Offer{80, 90}, Offer{80, 90, 101}, Offer{80, 99}}) {
    framework = {};
    framework.offered = offer;
    expectNoBackend("no 100 among the limits");
    EXPECT_EQ(framework.calls.back(), "availableChargeLimitsWithError:");
  }
}

TEST_F(PowerUIChargeBackendTest, OfferedRealsCountByTheirIntegerValue) {
  framework.offered =
      PropertyValue::Array{80.9, 100.0, 0.5, -3.0, 101.0, 1e300, -1e300, std::nan("")};
  const auto backend = made();
  ASSERT_NE(backend, nullptr);
  EXPECT_THAT(backend->offeredLimits(), ElementsAre(80, 100));
}

TEST_F(PowerUIChargeBackendTest, RequestsAreClampedAndNeverRounded) {
  framework.offered = PropertyValue::Array{80, 90, 100};
  const auto backend = ready();
  for (std::int64_t requested = -10; requested <= 200; ++requested) {
    const std::int64_t expected = requested < 80 ? 80 : requested > 100 ? 100 : requested;
    EXPECT_EQ(backend->snapped(requested), expected) << requested;
  }
  EXPECT_EQ(backend->snapped(INT64_MIN), 80);
  EXPECT_EQ(backend->snapped(INT64_MAX), 100);
}

TEST_F(PowerUIChargeBackendTest, ARequestIsSentAsItsClampedValueAndFullAsZero) {
  framework.offered = PropertyValue::Array{80, 90, 100};
  const auto backend = ready();
  const std::vector<std::pair<std::int64_t, std::string>> rows = {{50, "setMCLLimit:error: 80"},
                                                                  {85, "setMCLLimit:error: 85"},
                                                                  {100, "setMCLLimit:error: 0"},
                                                                  {120, "setMCLLimit:error: 0"}};
  for (const auto& [requested, call] : rows) {
    framework.calls.clear();
    EXPECT_EQ(textOf(backend->setLimit(requested)), "1") << requested;
    EXPECT_THAT(framework.calls, ElementsAre(call, "getMCLLimitWithError:"));
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
  framework.obeys = false;
  framework.limit = 90;
  const auto backend = ready();
  EXPECT_EQ(textOf(backend->setLimit(85)), "0");
  EXPECT_THAT(log.lines, ElementsAre("default PowerUIChargeBackend: PowerUI setLimit(85) → snapped "
                                     "85 (raw=85, readback=90)"));
}

TEST_F(PowerUIChargeBackendTest, ARefusalNamesTheClampedLimit) {
  framework.accepts = false;
  const auto backend = ready();
  EXPECT_EQ(textOf(backend->setLimit(85)), "PowerUI rejected charge limit 85");
  EXPECT_EQ(textOf(backend->setLimit(20)), "PowerUI rejected charge limit 80");
  EXPECT_EQ(textOf(backend->setLimit(100)), "PowerUI rejected charge limit 100");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(PowerUIChargeBackendTest, AFilledErrorSlotCountsBeforeTheAnswer) {
  for (const bool accepts : {true, false}) {
    framework = {};
    framework.accepts = accepts;
    framework.setError = "not now";
    const auto backend = ready();
    EXPECT_EQ(textOf(backend->setLimit(85)), "PowerUI call failed: not now");
    EXPECT_THAT(framework.calls, ElementsAre("setMCLLimit:error: 85"));
    EXPECT_THAT(log.lines, IsEmpty());
  }
}

TEST_F(PowerUIChargeBackendTest, AFailedReadBackFailsTheSetting) {
  framework.limitError = "gone";
  const auto backend = ready();
  EXPECT_EQ(textOf(backend->setLimit(85)), "PowerUI call failed: gone");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(PowerUIChargeBackendTest, NoLimitReadsAsAHundred) {
  const auto backend = ready();
  framework.limit = 0;
  EXPECT_EQ(textOf(backend->readLimit()), "100");
  framework.limit = 85;
  EXPECT_EQ(textOf(backend->readLimit()), "85");
  framework.limit = -1;
  EXPECT_EQ(textOf(backend->readLimit()), "-1");
  framework.limitError = "gone";
  EXPECT_EQ(textOf(backend->readLimit()), "PowerUI call failed: gone");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(PowerUIChargeBackendTest, SettingAHundredIsVerifiedByAGetterThatSaysZero) {
  framework.obeys = false;
  const auto backend = ready();
  framework.limit = 0;
  EXPECT_EQ(textOf(backend->setLimit(100)), "1");
  framework.limit = 80;
  EXPECT_EQ(textOf(backend->setLimit(100)), "0");
}

TEST_F(PowerUIChargeBackendTest, NothingIsRememberedBetweenCalls) {
  const auto backend = ready();
  EXPECT_EQ(textOf(backend->setLimit(85)), "1");
  EXPECT_EQ(textOf(backend->setLimit(85)), "1");
  EXPECT_THAT(framework.calls, ElementsAre("setMCLLimit:error: 85", "getMCLLimitWithError:",
                                           "setMCLLimit:error: 85", "getMCLLimitWithError:"));
}

}  // namespace
}  // namespace korvel
