// Adapters over hardware and services of the machine, whole and broken.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>

#include "Tests/tin/runner/Operator.h"
#include "macOS/Adapters.h"

namespace korvel::macos {
namespace {

using tinmac::test::Fault;

TEST(SMCAdapterTest, AConnectionIsOpenedUsedAndClosedOnce) {
  const auto smc = makeSMCUserClient();
  const ObjectRef service = smc->matchAppleSMC();
  ASSERT_NE(service, 0U);
  ConnectionRef connection = 0;
  ASSERT_EQ(smc->open(service, connection), kernSuccess);
  EXPECT_EQ(smc->objectRelease(service), kernSuccess);
  std::array<std::uint8_t, smcBlockSize> input{};
  std::array<std::uint8_t, smcBlockSize> output{};
  EXPECT_EQ(smc->callStruct(connection, input, output), kernSuccess);
  EXPECT_NE(output.at(40), 0) << "the SMC itself says that nothing was asked";
  EXPECT_EQ(smc->close(connection), kernSuccess);
}

TEST(SMCAdapterTest, ARefusedOpenLeavesTheConnectionAsItWas) {
  const Fault refused("smc-open-refused");
  const auto smc = makeSMCUserClient();
  const ObjectRef service = smc->matchAppleSMC();
  ConnectionRef connection = 7;
  EXPECT_NE(smc->open(service, connection), kernSuccess);
  EXPECT_EQ(connection, 7U);
  EXPECT_EQ(smc->objectRelease(service), kernSuccess);
}

TEST(SMCAdapterTest, AMachineMayHaveNoSMC) {
  const Fault missing("smc-missing");
  EXPECT_EQ(makeSMCUserClient()->matchAppleSMC(), 0U);
}

TEST(PowerSettingsOfTheMachineTest, ASettingReadsBackAsItWasSet) {
  const auto settings = makePowerSettings();
  for (const bool value : {true, false}) {
    ASSERT_EQ(settings->setSystemPowerSetting("SleepDisabled", value), kernSuccess);
    EXPECT_EQ(settings->copySystemPowerSettings()["SleepDisabled"].boolean(), value);
  }
  const Fault refused("settings-refused");
  EXPECT_NE(settings->setSystemPowerSetting("SleepDisabled", true), kernSuccess);
  EXPECT_EQ(settings->copySystemPowerSettings()["SleepDisabled"].boolean(), false);
}

TEST(PowerSourcesOfTheMachineTest, AListThatIsNoListHasNoElements) {
  const auto sources = makePowerSources();
  const Fault mistyped("power-sources-mistyped");
  const HandleRef info = sources->copyInfo();
  ASSERT_NE(info, 0U);
  const PowerSourceList list = sources->copyList(info);
  EXPECT_FALSE(list.isArray);
  EXPECT_TRUE(list.elements.empty());
  EXPECT_NE(list.handle, 0U) << "what it is must be released";
  sources->release(list.handle);
  sources->release(info);
}

TEST(PowerSourcesOfTheMachineTest, NothingIsToldWhenThereIsNothing) {
  const auto sources = makePowerSources();
  {
    const Fault missing("power-sources-missing");
    EXPECT_EQ(sources->copyInfo(), 0U);
  }
  const Fault missing("power-sources-no-list");
  const HandleRef info = sources->copyInfo();
  ASSERT_NE(info, 0U);
  const PowerSourceList list = sources->copyList(info);
  EXPECT_FALSE(list.isArray);
  EXPECT_EQ(list.handle, 0U);
  sources->release(info);
}

void ignore(void*, ObjectRef, std::uint32_t, std::uintptr_t) {}

TEST(RootPowerDomainOfTheMachineTest, ARegistrationThatFailsGivesNothing) {
  const Fault failing("power-registration-fails");
  HandleRef port = 7;
  ObjectRef notifier = 7;
  EXPECT_EQ(makeRootPowerDomain()->registerForSystemPower(nullptr, port, ignore, notifier), 0U);
  EXPECT_EQ(port, 7U);
  EXPECT_EQ(notifier, 0U);
}

TEST(FilesOfTheMachineTest, ADriveThatCannotReadSaysSo) {
  const auto files = makeFileSystem();
  constexpr const char* path = "/unreadable";
  const PosixResult opened = files->openExclusive(path, 0600);
  ASSERT_GE(opened.value, 0);
  const int descriptor = static_cast<int>(opened.value);
  EXPECT_EQ(files->write(descriptor, std::string_view("text")).value, 4);
  EXPECT_EQ(files->close(descriptor).value, 0);
  {
    const Fault unreadable("disk-call-fails readFile " + std::to_string(5));
    const auto content = files->readFile(path);
    ASSERT_FALSE(content.has_value());
    EXPECT_EQ(content.error().domain, "NSPOSIXErrorDomain");
    EXPECT_EQ(content.error().code, EIO);
  }
  EXPECT_EQ(files->readFile(path), "text");
}

}  // namespace
}  // namespace korvel::macos
