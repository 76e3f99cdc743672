#include <gtest/gtest.h>

#include "Tests/tin/FrameworkImages.h"
#include "Tests/tin/ServicesMachine.h"
#include "TinMac/Frameworks/Above.h"
#include "TinMac/System/Books.h"

namespace tinmac {
namespace {

const FrameworkImages& images() {
  static const auto& loaded =
      *new FrameworkImages(TIN_FRAMEWORKS, TIN_PROBES, services::machineFunction);
  return loaded;
}

/// The images are built against Apple's SDK. Each test has a process of its own, so what the
/// program's library keeps is as at first.
class ServicesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(images().failure(), "");
    services::reset();
  }

  static void call(const char* name) { images().inProgram<void()>(name)(); }
  static std::string probe(const char* name) { return images().inProgram<const char*()>(name)(); }
  static void sendPowerMessage(std::uint32_t type, std::uint64_t argument) {
    const services::Machine& machine = services::machine();
    machine.interest(machine.interestContext, 0, type, argument);
  }
  /// The service is published and has one peer.
  static void connect() {
    call("publish");
    ASSERT_TRUE(services::connectPeer());
    services::takeJournal();
  }
  static void settle() { images().inFrameworks<decltype(tinSettleBooks)>("tinSettleBooks")(); }
};

/// The same, for what ends the process.
using ServicesDeathTest = ServicesTest;

TEST_F(ServicesTest, RegistryEntriesAreMatchedReadAndGivenBack) {
  EXPECT_EQ(probe("probeRegistry"), "");
  EXPECT_EQ(services::takeJournal(), "iterate IOService 1\nrelease 21\nrelease 20\nrelease 7\n");
  EXPECT_EQ(liveObjects("io_object"), 0);
}
TEST_F(ServicesTest, AnObjectThatIsKeptStandsInTheBooks) {
  call("keepService");
  EXPECT_EQ(liveObjects("io_object"), 1);
}
TEST_F(ServicesTest, TheUserClientTakesItsOneMethodAndSize) {
  EXPECT_EQ(probe("probeUserClient"), "");
  EXPECT_EQ(services::takeJournal(), "open 7\nclose 30\nrelease 7\n");
  EXPECT_EQ(liveObjects("io_connect"), 0);
}
TEST_F(ServicesTest, AssertionsCarryTheirProperties) {
  EXPECT_EQ(probe("probeAssertionsAndSettings"), "");
  EXPECT_EQ(services::takeJournal(), "assert { AssertType: 'NoSleep' end\nset SleepDisabled 1\n");
  EXPECT_EQ(liveObjects("IOPMAssertion"), 0);
}
TEST_F(ServicesTest, PowerSourcesLiveAsLongAsSomebodyHoldsThem) {
  EXPECT_EQ(probe("probePowerSources"), "");
  EXPECT_EQ(services::takeJournal(), "release sources 53\nrelease sources 50\n");
}
TEST_F(ServicesTest, AListOfPowerSourcesMayBeNoArray) {
  services::machine().sourcesAreNoArray = true;
  EXPECT_EQ(probe("probePowerSourcesThatAreNoArray"), "");
  EXPECT_EQ(services::takeJournal(), "release sources 53\nrelease sources 50\n");
}

TEST_F(ServicesTest, PowerMessagesComeUntilThePortIsDestroyed) {
  call("registerForPower");
  sendPowerMessage(1000, 5);
  EXPECT_EQ(probe("probeHeard"), "1005 61");
  call("acknowledge");
  call("removeSource");
  call("endPowerNotifications");
  EXPECT_EQ(services::takeJournal(),
            "add 63\nallow 62 12\nremove 63\nderegister 61\nclose 62\ndestroy 60\n");
  sendPowerMessage(1000, 5);
  EXPECT_EQ(probe("probeHeard"), "1005 0");
  EXPECT_EQ(liveObjects("IONotificationPort"), 0);
  EXPECT_EQ(liveObjects("TinRunLoopSource"), 0);
}
TEST_F(ServicesTest, APortThatIsDestroyedOnItsRunLoopIsNoted) {
  call("registerForPower");
  call("endPowerNotifications");
  EXPECT_EQ(notedRules("a notification port is destroyed while its source is on a run loop"), 1);
}
TEST_F(ServicesTest, AModeThatNobodyRunsIsNoted) {
  call("registerForPower");
  services::takeJournal();
  call("addInOtherMode");
  EXPECT_EQ(services::takeJournal(), "");
  EXPECT_EQ(notedRules("a run-loop mode that nobody runs"), 1);
}

TEST_F(ServicesTest, CodeObjectsTellTheirSigningInformation) {
  EXPECT_EQ(probe("probeCode"), "");
  EXPECT_EQ(services::takeJournal(), "release code 70\n");
}
TEST_F(ServicesTest, AGuestIsFoundByItsProcess) {
  EXPECT_EQ(probe("probeGuest"), "");
  EXPECT_EQ(services::takeJournal(), "release code 72\nrelease code 71\n");
}

TEST_F(ServicesTest, ALoadedLibrarysClassIsCalledThroughItsImplementations) {
  EXPECT_EQ(probe("probeLibrary"), "");
  EXPECT_EQ(services::takeJournal(), "init 83 84 name\nlimit 200\nrelease object 85\n");
}
TEST_F(ServicesTest, AnErrorSlotGetsTheLibrarysText) {
  services::machine().callError = "not today";
  EXPECT_EQ(probe("probeLibraryError"), "");
}
TEST_F(ServicesTest, AMethodThatTheLibraryLacksIsNotInherited) {
  services::machine().lacksAlloc = true;
  EXPECT_EQ(probe("probeLibraryWithoutAlloc"), "");
}
TEST_F(ServicesTest, WhatTheLibraryGivesForAClassMayBeNone) {
  services::machine().classIsNoClass = true;
  EXPECT_EQ(probe("probeClassThatIsNone"), "");
}

TEST_F(ServicesTest, AnAcceptedConnectionExportsItsProtocol) {
  call("publish");
  EXPECT_EQ(services::machine().service, "com.example.greeter");
  EXPECT_TRUE(services::connectPeer());
  EXPECT_EQ(services::takeJournal(), "export Greetings\nclasses greetWithReply: 0 NSData\n");
}
TEST_F(ServicesTest, MessagesBringTheirNumberAndAnswersTheirValues) {
  connect();
  services::sendMessage("greetWithReply:", 0, true);
  services::sendMessage("setLimit:reply:", 255, true);
  services::sendMessage("setLimit:reply:", 200, true);
  services::sendMessage("setSwitch:reply:", 1, true);
  services::sendMessage("setSwitch:reply:", 0, true);
  services::sendMessage("leave", 0, false);
  EXPECT_EQ(services::takeJournal(),
            "reply greetWithReply: data 104 105\n"
            "reply setLimit:reply: true absent\n"
            "reply setLimit:reply: false error limits 200 < { end end\n"
            "reply setSwitch:reply: 9\nreply setSwitch:reply: 0\n");
  EXPECT_EQ(notedRules("an argument of a reply is not of its declared class"), 0);
  EXPECT_EQ(probe("probeEnd"), "heard");
  EXPECT_EQ(probe("probeOutsideOfCalls"), "");
}
TEST_F(ServicesTest, AConnectionThatEndsLetsGoOfWhatItHolds) {
  connect();
  EXPECT_EQ(liveObjects("Greeter"), 1);
  services::endConnection();
  EXPECT_EQ(probe("probeEnd"), "heard");
  EXPECT_EQ(liveObjects("Greeter"), 0);
  EXPECT_EQ(liveObjects("NSXPCConnection"), 0);
  EXPECT_EQ(liveObjects("NSXPCInterface"), 0);
}
TEST_F(ServicesTest, AReplyMayComeAfterTheConnectionIsGone) {
  connect();
  call("answerLater");
  services::sendMessage("greetWithReply:", 0, true);
  services::endConnection();
  EXPECT_EQ(services::takeJournal(), "");
  call("answerNow");
  EXPECT_EQ(services::takeJournal(), "reply greetWithReply: data 104 105\n");
  EXPECT_EQ(liveObjects("TinOwedReply"), 0);
}
TEST_F(ServicesTest, AReplyThatNeverComesIsDroppedAndNoted) {
  connect();
  call("answerNever");
  services::sendMessage("greetWithReply:", 0, true);
  EXPECT_EQ(services::takeJournal(), "drop greetWithReply:\n");
  EXPECT_EQ(notedRules("a reply block went away uncalled"), 1);
}
TEST_F(ServicesTest, AnExceptionThatLeavesAMessageIsNoted) {
  connect();
  call("throwInstead");
  services::sendMessage("greetWithReply:", 0, true);
  EXPECT_EQ(services::takeJournal(), "drop greetWithReply:\n");
  EXPECT_EQ(notedRules("an exception left a delivered message"), 1);
}
TEST_F(ServicesTest, APeerIsRefusedWithoutADelegate) {
  call("publish");
  call("dismissDoorkeeper");
  EXPECT_FALSE(services::connectPeer());
  EXPECT_EQ(liveObjects("NSXPCConnection"), 0);
}
TEST_F(ServicesTest, ARefusedConnectionKeepsNothingAndRunsNoHandler) {
  call("publish");
  call("refusePeers");
  EXPECT_FALSE(services::connectPeer());
  EXPECT_EQ(probe("probeEnd"), "not heard");
  EXPECT_EQ(liveObjects("Greeter"), 0);
  EXPECT_EQ(liveObjects("NSXPCConnection"), 0);
}
TEST_F(ServicesTest, ARequirementThatDoesNotParseRaises) {
  call("publish");
  call("requireNonsense");
  EXPECT_FALSE(services::connectPeer());
}
TEST_F(ServicesTest, InterfacesRaiseForWhatTheirProtocolLacks) {
  EXPECT_EQ(probe("probeInterfaceErrors"), "");
}
TEST_F(ServicesTest, SettlingLetsGoOfLivingConnections) {
  connect();
  settle();
  EXPECT_EQ(liveObjects("Greeter"), 0);
  services::sendMessage("greetWithReply:", 0, true);
  EXPECT_EQ(services::takeJournal(), "drop greetWithReply:\n");
  services::endConnection();
}

TEST_F(ServicesDeathTest, ReleasingAnObjectThatIsNotHeldEndsTheProcess) {
  EXPECT_DEATH(call("breakReleaseOfUnheldObject"), "is released that the program does not hold");
}
TEST_F(ServicesDeathTest, ClosingAConnectionTwiceEndsTheProcess) {
  EXPECT_DEATH(call("breakCloseTwice"), "is closed that is not open");
}
TEST_F(ServicesDeathTest, ASettingThatIsNoBooleanEndsTheProcess) {
  EXPECT_DEATH(call("breakSettingThatIsNoBoolean"), "a power setting is a CFBoolean");
}
TEST_F(ServicesDeathTest, DestroyingAPortTwiceEndsTheProcess) {
  call("registerForPower");
  call("destroyPort");
  EXPECT_DEATH(call("destroyPort"), "is used after it was destroyed");
}
TEST_F(ServicesDeathTest, AnsweringTwiceEndsTheProcess) {
  connect();
  call("answerTwice");
  EXPECT_DEATH(services::sendMessage("greetWithReply:", 0, true), "a reply block was called twice");
}
TEST_F(ServicesDeathTest, ANumberThatDoesNotFitEndsTheProcess) {
  connect();
  EXPECT_DEATH(services::sendMessage("setSwitch:reply:", 2, true), "does not fit its type");
}
TEST_F(ServicesDeathTest, SettingARequirementTwiceEndsTheProcess) {
  call("publish");
  call("requireTwice");
  EXPECT_DEATH(services::connectPeer(), "requirement is set twice");
}

}  // namespace
}  // namespace tinmac
