// The adapters must work on any Mac, so these tests assume no privilege, battery or SMC.
#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "macOS/Adapters.h"
#include "macOS/PropertyConversion.h"

namespace korvel::macos {
namespace {

TEST(RegistryAdapterTest, FindsTheRootDomainOfEveryMac) {
  const auto registry = makeIORegistry();
  const ObjectRef domain = registry->getMatchingService("IOPMrootDomain");
  ASSERT_NE(domain, 0U);
  EXPECT_TRUE(registry->conformsTo(domain, "IOPMrootDomain"));
  EXPECT_FALSE(registry->conformsTo(domain, "AppleSmartBattery"));
  EXPECT_FALSE(registry->conformsTo(domain, std::string(200, 'x')));
  PropertyValue properties;
  ASSERT_EQ(registry->createProperties(domain, properties), kernSuccess);
  ASSERT_NE(properties.dictionary(), nullptr);
  EXPECT_FALSE(registry->createProperty(domain, "IOClass").isAbsent());
  EXPECT_TRUE(registry->createProperty(domain, "NoSuchProperty").isAbsent());
  EXPECT_EQ(registry->objectRelease(domain), kernSuccess);
}

TEST(RegistryAdapterTest, AnIteratorEndsAndGivesEverythingBack) {
  const auto registry = makeIORegistry();
  const ObjectRef domain = registry->getMatchingService("IOPMrootDomain");
  ObjectRef iterator = 0;
  ASSERT_EQ(registry->createIterator(domain, "IOService", ioRegistryIterateRecursively, iterator),
            kernSuccess);
  while (const ObjectRef each = registry->iteratorNext(iterator)) {
    EXPECT_EQ(registry->objectRelease(each), kernSuccess);
  }
  EXPECT_EQ(registry->objectRelease(iterator), kernSuccess);
  ObjectRef none = 7;
  EXPECT_NE(registry->createIterator(domain, "NoSuchPlane", 0, none), kernSuccess);
  EXPECT_EQ(none, 7U);
  EXPECT_EQ(registry->objectRelease(domain), kernSuccess);
}

TEST(RegistryAdapterTest, AnUnknownClassHasNoService) {
  EXPECT_EQ(makeIORegistry()->getMatchingService("KorvelNoSuchClass"), 0U);
}

TEST(PowerSourcesAdapterTest, ASnapshotHasAList) {
  const auto sources = makePowerSources();
  const HandleRef info = sources->copyInfo();
  ASSERT_NE(info, 0U);
  const PowerSourceList list = sources->copyList(info);
  ASSERT_TRUE(list.isArray);
  for (const HandleRef each : list.elements) {
    EXPECT_NE(sources->getDescription(info, each)["Type"].text(), nullptr);
  }
  sources->release(list.handle);
  sources->release(info);
}

TEST(PowerAssertionsAdapterTest, AnAssertionIsMadeAndReleasedOnce) {
  const auto assertions = makePowerAssertions();
  const PropertyValue::Dictionary properties{{"AssertType", "PreventUserIdleSystemSleep"},
                                             {"AssertLevel", 255},
                                             {"AssertName", "Korvel adapter test"},
                                             {"TimeoutSeconds", 60.0},
                                             {"TimeoutAction", "TimeoutActionRelease"}};
  std::uint32_t id = 0;
  ASSERT_EQ(assertions->createWithProperties(properties, id), kernSuccess);
  EXPECT_NE(id, 0U);
  EXPECT_EQ(assertions->release(id), kernSuccess);
  EXPECT_NE(assertions->release(id), kernSuccess);
}

TEST(PowerAssertionsAdapterTest, AnAssertionNeedsATypeAndARelease) {
  const auto assertions = makePowerAssertions();
  std::uint32_t id = 7;
  EXPECT_EQ(assertions->createWithProperties(PropertyValue::Dictionary{{"AssertName", "x"}}, id),
            ioReturnBadArgument);
  EXPECT_EQ(assertions->createWithProperties(PropertyValue("no dictionary"), id),
            ioReturnBadArgument);
  EXPECT_EQ(id, 7U);
  EXPECT_EQ(assertions->release(0), ioReturnBadArgument);
}

TEST(PowerSettingsAdapterTest, SettingsAreADictionaryOrNothing) {
  const PropertyValue settings = makePowerSettings()->copySystemPowerSettings();
  EXPECT_TRUE(settings.isAbsent() || settings.dictionary() != nullptr);
}

void ignoreNotification(void*, ObjectRef, std::uint32_t, std::uintptr_t) {}

TEST(RootPowerDomainAdapterTest, ARegistrationIsTakenDownInOrderAndCanBeMadeAgain) {
  const auto domain = makeRootPowerDomain();
  for (int round = 0; round < 2; ++round) {
    HandleRef port = 0;
    ObjectRef notifier = 0;
    const ConnectionRef root =
        domain->registerForSystemPower(nullptr, port, ignoreNotification, notifier);
    ASSERT_NE(root, 0U);
    ASSERT_NE(port, 0U);
    const HandleRef source = domain->notificationPortGetRunLoopSource(port);
    ASSERT_NE(source, 0U);
    domain->runLoopAddSource(domain->mainRunLoop(), source);
    domain->runLoopRemoveSource(domain->mainRunLoop(), source);
    EXPECT_EQ(domain->deregisterForSystemPower(notifier), kernSuccess);
    EXPECT_EQ(notifier, 0U);
    EXPECT_EQ(domain->serviceClose(root), kernSuccess);
    domain->notificationPortDestroy(port);
  }
}

TEST(WallClockAdapterTest, CountsFrom2001) {
  const double unixSeconds =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  EXPECT_NEAR(makeWallClock()->now().secondsSinceReference + unixToReferenceSeconds, unixSeconds,
              5);
}

PropertyValue signingInformation(CodeSigning& signing, HandleRef code) {
  PropertyValue information;
  EXPECT_EQ(signing.copySigningInformation(code, codeSigningInformationFlag, information), 0);
  return information;
}

TEST(CodeSigningAdapterTest, AProgramIsTheSameByPathAndByPid) {
  const auto signing = makeCodeSigning();
  const auto path = makeProcess()->bundleExecutablePath();
  ASSERT_TRUE(path);
  HandleRef byPath = 0;
  ASSERT_EQ(signing->staticCodeCreateWithPath(*path, byPath), 0);
  HandleRef guest = 0;
  ASSERT_EQ(signing->copyGuestWithPid(::getpid(), guest), 0);
  HandleRef byPid = 0;
  ASSERT_EQ(signing->copyStaticCode(guest, byPid), 0);
  const PropertyValue identifier = signingInformation(*signing, byPath)[codeInfoIdentifierKey];
  EXPECT_NE(identifier.text(), nullptr) << "every program on this processor is signed";
  EXPECT_EQ(identifier, signingInformation(*signing, byPid)[codeInfoIdentifierKey]);
  for (const HandleRef code : {byPath, guest, byPid}) signing->release(code);
}

TEST(CodeSigningAdapterTest, WhatFailsLeavesTheHandleAsItWas) {
  const auto signing = makeCodeSigning();
  HandleRef code = 0;
  EXPECT_NE(signing->staticCodeCreateWithPath("/no/such/program", code), 0);
  EXPECT_NE(signing->copyGuestWithPid(0x7FFFFFF0, code), 0);
  EXPECT_EQ(code, 0U);
}

// The core looks up these entries by their text.
TEST(CodeSigningAdapterTest, TheKeysAreThePlatforms) {
  EXPECT_EQ(utf8Text(kSecCodeInfoIdentifier), codeInfoIdentifierKey);
  EXPECT_EQ(utf8Text(kSecCodeInfoTeamIdentifier), codeInfoTeamIdentifierKey);
}

TEST(ProcessAdapterTest, KnowsItself) {
  const auto process = makeProcess();
  EXPECT_EQ(process->getpid(), ::getpid());
  const auto path = process->bundleExecutablePath();
  ASSERT_TRUE(path);
  EXPECT_EQ(::access(path->c_str(), X_OK), 0);
  EXPECT_TRUE(process->bundleInfo("KorvelNoSuchKey").isAbsent());
}

TEST(XPCAdapterTest, OutsideACallThereIsNoCaller) {
  EXPECT_EQ(makeXPCService()->currentConnectionPid(), std::nullopt);
}

TEST(UnifiedLogAdapterTest, TakesAnyText) {
  const auto log = makeUnifiedLog();
  for (const LogLevel level : {LogLevel::Default, LogLevel::Error, LogLevel::Fault}) {
    EXPECT_NO_FATAL_FAILURE(log->emit("com.korvel.app.helper.test", "Test", level,
                                      "100% — %s %n " + std::string(4000, 'x')));
  }
}

}  // namespace
}  // namespace korvel::macos
