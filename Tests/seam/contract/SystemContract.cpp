#include "Platform/CodeSigning.h"
#include "Platform/Process.h"
#include "Platform/SmartChargeRuntime.h"
#include "Platform/WallClock.h"
#include "SeamContract.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

// ---- SmartChargeRuntime

namespace {

constexpr std::string_view frameworkPath =
    "/System/Library/PrivateFrameworks/PowerUI.framework/PowerUI";

/// Returns the framework's class; 0: there is none.
korvel::HandleRef smartChargeClass(korvel::SmartChargeRuntime& runtime) {
  if (runtime.dlopen(frameworkPath, korvel::dlopenNow) == 0) return 0;
  return runtime.classFromString("PowerUISmartChargeClient");
}

/// Returns an initialised client object of the framework.
korvel::HandleRef smartChargeClient(korvel::SmartChargeRuntime& runtime) {
  const korvel::HandleRef cls = smartChargeClass(runtime);
  const korvel::HandleRef object = runtime.callAlloc(runtime.getClassMethod(cls, "alloc"), cls);
  return runtime.callInit(runtime.getInstanceMethod(cls, "initWithClientName:"), object,
                          "contract");
}

}  // namespace

TEST_P(SmartChargeRuntimeContract, WithoutTheFrameworkNothingIsFound) {
  EXPECT_EQ(platform().smartCharge.dlopen(frameworkPath, korvel::dlopenNow), 0U);
  EXPECT_EQ(platform().smartCharge.classFromString("PowerUISmartChargeClient"), 0U);
}

TEST_P(SmartChargeRuntimeContract, ClassesAndMethodsAreFoundByName) {
  use("native-only");
  korvel::SmartChargeRuntime& runtime = platform().smartCharge;
  const korvel::HandleRef cls = smartChargeClass(runtime);
  ASSERT_NE(cls, 0U);
  EXPECT_TRUE(runtime.isClass(cls));
  EXPECT_EQ(runtime.classFromString("NoSuchClass"), 0U);
  EXPECT_NE(runtime.getClassMethod(cls, "alloc"), 0U);
  EXPECT_EQ(runtime.getClassMethod(cls, "noSuchMethod"), 0U);
  EXPECT_NE(runtime.getInstanceMethod(cls, "initWithClientName:"), 0U);
  EXPECT_EQ(runtime.getInstanceMethod(cls, "noSuchMethod"), 0U);
}

TEST_P(SmartChargeRuntimeContract, AnObjectIsMadeAskedAndSet) {
  use("native-only");
  korvel::SmartChargeRuntime& runtime = platform().smartCharge;
  const korvel::HandleRef client = smartChargeClient(runtime);
  ASSERT_NE(client, 0U);
  EXPECT_TRUE(runtime.respondsToSelector(client, "isMCLSupported"));
  EXPECT_FALSE(runtime.respondsToSelector(client, "noSuchSelector"));
  EXPECT_TRUE(runtime.callBoolean(client, "isMCLSupported"));
  korvel::ErrorSlot error;
  EXPECT_TRUE(runtime.callSetUInt8(client, "setMCLLimit:error:", 85, error));
  EXPECT_FALSE(error);
  EXPECT_EQ(runtime.callInt32(client, "getMCLLimitWithError:", error), 85);
  EXPECT_NE(runtime.callObject(client, "availableChargeLimitsWithError:", error).array(), nullptr);
  EXPECT_FALSE(error);
  rig->machine([](Machine& mac) { EXPECT_EQ(mac.powerUI.currentLimit(), 85); });
  runtime.release(client);
}

TEST_P(SmartChargeRuntimeContract, AFailureFillsTheErrorSlot) {
  use("native-only");
  korvel::SmartChargeRuntime& runtime = platform().smartCharge;
  const korvel::HandleRef client = smartChargeClient(runtime);
  rig->machine([](Machine& mac) {
    mac.powerUI.setError = "cannot set";
    mac.powerUI.getError = "cannot get";
    mac.powerUI.offeredError = "cannot list";
  });
  korvel::ErrorSlot error;
  EXPECT_FALSE(runtime.callSetUInt8(client, "setMCLLimit:error:", 85, error));
  EXPECT_EQ(error, "cannot set");
  error.reset();
  runtime.callInt32(client, "getMCLLimitWithError:", error);
  EXPECT_EQ(error, "cannot get");
  error.reset();
  runtime.callObject(client, "availableChargeLimitsWithError:", error);
  EXPECT_EQ(error, "cannot list");
  runtime.release(client);
}

TEST_P(SmartChargeRuntimeContract, AnInitThatGivesNothingGivesZero) {
  use("native-only");
  rig->machine([](Machine& mac) { mac.powerUI.initGivesNothing = true; });
  EXPECT_EQ(smartChargeClient(platform().smartCharge), 0U);
}

// ---- CodeSigning

namespace {

std::string textAt(const korvel::PropertyValue& information, std::string_view key) {
  const std::string* text = information[key].text();
  return text == nullptr ? "none" : *text;
}

korvel::PropertyValue informationOf(korvel::CodeSigning& signing, korvel::HandleRef code) {
  korvel::PropertyValue information;
  EXPECT_EQ(signing.copySigningInformation(code, korvel::codeSigningInformationFlag, information),
            0);
  return information;
}

korvel::PropertyValue informationOfProcess(korvel::CodeSigning& signing, std::int32_t pid) {
  korvel::HandleRef guest = 0;
  EXPECT_EQ(signing.copyGuestWithPid(pid, guest), 0);
  korvel::HandleRef code = 0;
  EXPECT_EQ(signing.copyStaticCode(guest, code), 0);
  const korvel::PropertyValue information = informationOf(signing, code);
  signing.release(code);
  signing.release(guest);
  return information;
}

}  // namespace

TEST_P(CodeSigningContract, TheHelpersOwnProgramIsSignedByItsTeam) {
  const std::optional<std::string> path = platform().process.bundleExecutablePath();
  ASSERT_TRUE(path);
  korvel::HandleRef code = 0;
  ASSERT_EQ(platform().codeSigning.staticCodeCreateWithPath(*path, code), 0);
  ASSERT_NE(code, 0U);
  const auto information = informationOf(platform().codeSigning, code);
  EXPECT_EQ(textAt(information, korvel::codeInfoTeamIdentifierKey), virtualTeam);
  platform().codeSigning.release(code);
}

TEST_P(CodeSigningContract, AProcessIsKnownByItsPid) {
  const auto client = rig->connect("app");
  const auto information = informationOfProcess(platform().codeSigning, client->pid());
  EXPECT_EQ(textAt(information, korvel::codeInfoIdentifierKey), "com.korvel.app");
  EXPECT_EQ(textAt(information, korvel::codeInfoTeamIdentifierKey), virtualTeam);
}

TEST_P(CodeSigningContract, UnknownPathsAndPidsFail) {
  korvel::HandleRef code = 0;
  EXPECT_NE(platform().codeSigning.staticCodeCreateWithPath("/nowhere", code), 0);
  EXPECT_EQ(code, 0U);
  EXPECT_NE(platform().codeSigning.copyGuestWithPid(99999, code), 0);
  EXPECT_EQ(code, 0U);
}

TEST_P(CodeSigningContract, AnUnsignedProgramHasNeitherIdentifierNorTeam) {
  const auto client = rig->connect("unsigned");
  const auto information = informationOfProcess(platform().codeSigning, client->pid());
  EXPECT_EQ(textAt(information, korvel::codeInfoIdentifierKey), "none");
  EXPECT_EQ(textAt(information, korvel::codeInfoTeamIdentifierKey), "none");
}

TEST_P(CodeSigningContract, AReleaseTakesTheTimeThatItIsSaidToTake) {
  rig->machine([](Machine& mac) { mac.setLatencySeconds(SeamCall::codeRelease, 0.3); });
  korvel::HandleRef code = 0;
  const std::string path = platform().process.bundleExecutablePath().value();
  ASSERT_EQ(platform().codeSigning.staticCodeCreateWithPath(path, code), 0);
  const korvel::Date before = platform().clock.now();
  platform().codeSigning.release(code);
  const double passed = platform().clock.now().secondsSinceReference - before.secondsSinceReference;
  EXPECT_GE(passed, 0.299);
}

// ---- Process

TEST_P(ProcessContract, HasOnePidAllItsLife) {
  const std::int32_t pid = platform().process.getpid();
  EXPECT_GT(pid, 0);
  EXPECT_EQ(platform().process.getpid(), pid);
}

TEST_P(ProcessContract, TheBundlesInformationIsReadAsItIs) {
  rig->machine([](Machine& mac) {
    mac.bundleInformation.insert_or_assign("CFBundleShortVersionString", "3.1.4");
    mac.bundleInformation.insert_or_assign("Number", 7);
  });
  const korvel::PropertyValue version = platform().process.bundleInfo("CFBundleShortVersionString");
  ASSERT_NE(version.text(), nullptr);
  EXPECT_EQ(*version.text(), "3.1.4");
  EXPECT_EQ(platform().process.bundleInfo("Number").integer(), 7);
  EXPECT_TRUE(platform().process.bundleInfo("Nothing").isAbsent());
}

// ---- WallClock

TEST_P(WallClockContract, GoesOnWithTime) {
  const korvel::Date before = platform().clock.now();
  rig->pass(0.5);
  const double passed = platform().clock.now().secondsSinceReference - before.secondsSinceReference;
  EXPECT_GE(passed, 0.499);
  EXPECT_LT(passed, 5);
}

TEST_P(WallClockContract, IsTheMachinesAlsoWhenSomebodySetsIt) {
  rig->machine([](Machine& mac) { mac.setWallClock(korvel::Date{1000}); });
  const double now = platform().clock.now().secondsSinceReference;
  EXPECT_GE(now, 1000);
  EXPECT_LT(now, 1010);
}

// ---- UnifiedLog

TEST_P(UnifiedLogContract, ALineArrivesWithItsCategoryLevelAndText) {
  platform().log.emit("com.korvel.app.helper", "Boot", korvel::LogLevel::Fault,
                      "it is — 100% \"quoted\"");
  EXPECT_TRUE(rig->until(
      [&] { return rig->logged("Boot", korvel::LogLevel::Fault, "it is — 100% \"quoted\""); }, 5));
  EXPECT_FALSE(rig->logged("Boot", korvel::LogLevel::Error, "it is — 100% \"quoted\""));
}

}  // namespace virtualmac
