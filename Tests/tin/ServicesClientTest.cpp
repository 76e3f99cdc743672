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

/// A client of a service, over a machine that plays the service. Each test has a process of its
/// own.
class ServicesClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string& reason = images().failure();
    if (reason.starts_with("not built")) {
      GTEST_SKIP() << reason;
    }
    ASSERT_EQ(reason, "");
    services::reset();
  }

  static void call(const char* name) { images().inProgram<void()>(name)(); }
  static std::string probe(const char* name) { return images().inProgram<const char*()>(name)(); }
  static std::string heard() { return probe("probeHeardByClient"); }
  static void settle() { images().inFrameworks<decltype(tinSettleBooks)>("tinSettleBooks")(); }
  /// The connection is resumed.
  static void open() {
    call("openClient");
    ASSERT_EQ(services::takeJournal(), "open com.example.greeter parses\n");
  }
  /// Nothing of a connection is left.
  static void expectNothingLeft() {
    for (const char* name : {"NSXPCConnection", "NSXPCInterface", "TinClientSide", "TinClientLine",
                             "TinRemoteProxy", "NSMallocBlock", "NSError"}) {
      EXPECT_EQ(liveObjects(name), 0) << name;
    }
  }
};

/// The same, for what ends the process.
using ServicesClientDeathTest = ServicesClientTest;

void tellDone(const TinValueSink& sink) {
  sink.boolean(sink.context, 1);
  sink.absent(sink.context);
}

/// A refusal whose details hold a text, which the client's interface allows.
void tellRefusal(const TinValueSink& sink) {
  sink.boolean(sink.context, 0);
  sink.beginError(sink.context, "limits", 6, 200);
  sink.beginDictionary(sink.context);
  sink.key(sink.context, "why", 3);
  sink.text(sink.context, "no", 2);
  sink.end(sink.context);
  sink.end(sink.context);
}

/// The same with bytes, which it does not allow.
void tellRefusalWithBytes(const TinValueSink& sink) {
  const std::uint8_t byte = 5;
  sink.boolean(sink.context, 0);
  sink.beginError(sink.context, "limits", 6, 200);
  sink.beginDictionary(sink.context);
  sink.key(sink.context, "why", 3);
  sink.data(sink.context, &byte, 1);
  sink.end(sink.context);
  sink.end(sink.context);
}

void tellGreeting(const TinValueSink& sink) {
  const std::uint8_t bytes[] = {'h', 'i'};
  sink.data(sink.context, bytes, sizeof bytes);
}
void tellText(const TinValueSink& sink) { sink.text(sink.context, "hi", 2); }
void tellNumber(const TinValueSink& sink) { sink.integer(sink.context, 77); }
void tellTwoNumbers(const TinValueSink& sink) {
  tellNumber(sink);
  tellNumber(sink);
}

TEST_F(ServicesClientTest, MessagesCarryTheirArgumentsAndRepliesReachTheirBlocks) {
  open();
  call("askForLimit");
  call("askForSwitch");
  call("askForGreeting");
  EXPECT_EQ(services::takeJournal(),
            "send 1 setLimit:reply: [ 200 end or 1\nsend 2 setSwitch:reply: [ true end or 2\n"
            "send 3 greetWithReply: [ end or 3\n");
  services::replyToClient(3, tellGreeting);
  services::replyToClient(1, tellDone);
  services::replyToClient(2, tellNumber);
  EXPECT_EQ(heard(), "text hi, done, caller 77");
}
TEST_F(ServicesClientTest, AnErrorIsHandedOverWithTheClassesThatTheInterfaceAllows) {
  open();
  call("askForLimit");
  services::replyToClient(1, tellRefusal);
  EXPECT_EQ(heard(), "not done, because limits 200");
}
TEST_F(ServicesClientTest, AReplyWithAnotherClassIsAnErrorInstead) {
  open();
  call("askForLimit");
  services::replyToClient(1, tellRefusalWithBytes);
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4101");
  // Without a setting the protocol's own class holds.
  call("askForGreeting");
  services::replyToClient(2, tellText);
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4101");
}
TEST_F(ServicesClientTest, AReplyWithOtherValuesIsAnErrorInstead) {
  open();
  call("askForSwitch");
  services::replyToClient(1, tellDone);
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4101");
  call("askForSwitch");
  services::replyToClient(2, tellTwoNumbers);
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4101");
  call("askForSwitch");
  services::replyToClient(3, tellText);
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4101");
}
TEST_F(ServicesClientTest, AMessageIsAnsweredOrFailsOnce) {
  open();
  call("askForLimit");
  services::replyToClient(1, tellDone);
  services::replyToClient(1, tellDone);
  services::failMessage(1, TinClientInterrupted);
  EXPECT_EQ(heard(), "done");
  call("askForLimit");
  services::failMessage(2, TinClientInterrupted);
  services::failMessage(2, TinClientInterrupted);
  services::replyToClient(2, tellDone);
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4097");
}
TEST_F(ServicesClientTest, AnInterruptionIsToldEachTimeAndMoreMessagesMayFollow) {
  open();
  services::endClient(TinClientInterrupted);
  services::endClient(TinClientInterrupted);
  EXPECT_EQ(heard(), "interrupted, interrupted");
  services::takeJournal();
  call("askForSwitch");
  services::replyToClient(1, tellNumber);
  EXPECT_EQ(heard(), "caller 77");
}
TEST_F(ServicesClientTest, AnInvalidationIsToldOnceAndLetsGoOfEverything) {
  open();
  call("closeClient");
  EXPECT_EQ(services::takeJournal(), "invalidate\n");
  services::endClient(TinClientInvalid);
  services::endClient(TinClientInvalid);
  services::endClient(TinClientInterrupted);
  EXPECT_EQ(heard(), "invalidated");
  services::machine().clientCannotSend = true;
  call("askForLimit");
  services::failMessage(1, TinClientInvalid);
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4099");
  services::takeJournal();
  call("dropClient");
  EXPECT_EQ(services::takeJournal(), "close\n");
  expectNothingLeft();
}
TEST_F(ServicesClientTest, APeerThatTheRequirementDoesNotSuitEndsTheConnection) {
  open();
  call("askForLimit");
  services::failMessage(1, TinClientRefused);
  services::endClient(TinClientRefused);
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4102, invalidated");
}
TEST_F(ServicesClientTest, AMessageWithoutAReplyIsForgottenOnceItIsSent) {
  open();
  call("leaveService");
  EXPECT_EQ(services::takeJournal(), "send 0 leave [ end or 1\n");
  services::failMessage(1, TinClientInterrupted);
  EXPECT_EQ(heard(), "");
}
TEST_F(ServicesClientTest, AMessageThatCannotBeSentFailsEvenWithoutAReply) {
  open();
  services::machine().clientCannotSend = true;
  call("leaveService");
  call("leaveServiceUnheard");
  services::failMessage(1, TinClientInvalid);
  services::failMessage(2, TinClientInvalid);
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4099");
}
TEST_F(ServicesClientTest, AMessageThatTheProtocolLacksRaises) {
  open();
  EXPECT_EQ(probe("probeMessageThatTheProtocolLacks"), "");
  EXPECT_EQ(services::takeJournal(), "");
}
TEST_F(ServicesClientTest, ARequirementThatDoesNotParseRaises) {
  EXPECT_EQ(probe("probeRequirementThatDoesNotParse"), "");
  EXPECT_EQ(notedRules("a client's connection went away that was never resumed"), 1);
}
TEST_F(ServicesClientTest, SettlingWaitsForConnectionsAndLetsGoOfThem) {
  open();
  call("askForLimit");
  call("dropClient");
  EXPECT_EQ(liveObjects("NSXPCConnection"), 1) << "a connection that is resumed keeps itself";
  services::takeJournal();
  settle();
  EXPECT_EQ(services::takeJournal(), "quiet\nclose\n");
  expectNothingLeft();
  services::replyToClient(1, tellDone);
  services::endClient(TinClientInterrupted);
  EXPECT_EQ(heard(), "");
}

TEST_F(ServicesClientTest, AMessageThatWaitsIsAnsweredToItsSender) {
  open();
  services::machine().whileSending = [](std::uint32_t ticket) {
    services::replyToClient(ticket, tellNumber);
    EXPECT_EQ(heard(), "") << "the reply block was called by another than the sender";
  };
  call("askForSwitchAndWait");
  EXPECT_EQ(heard(), "caller 77, and on");
}
TEST_F(ServicesClientTest, AMessageThatWaitsFailsToItsSender) {
  open();
  services::machine().whileSending = [](std::uint32_t ticket) {
    services::failMessage(ticket, TinClientInterrupted);
    EXPECT_EQ(heard(), "") << "the error handler was called by another than the sender";
  };
  call("askForSwitchAndWait");
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4097, and on");
}
TEST_F(ServicesClientTest, AWaitingSenderHearsThatTheReplyHasOtherValues) {
  open();
  services::machine().whileSending = [](std::uint32_t ticket) {
    services::replyToClient(ticket, tellText);
  };
  call("askForSwitchAndWait");
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4101, and on");
}
TEST_F(ServicesClientTest, NobodyWaitsForAMessageWithoutAReplyThatWasSent) {
  open();
  call("leaveServiceAndWait");
  EXPECT_EQ(heard(), "and on");
}
TEST_F(ServicesClientTest, AMessageWithoutAReplyWaitsForItsFailure) {
  open();
  services::machine().clientCannotSend = true;
  services::machine().whileSending = [](std::uint32_t ticket) {
    services::failMessage(ticket, TinClientInvalid);
  };
  call("leaveServiceAndWait");
  EXPECT_EQ(heard(), "failure NSCocoaErrorDomain 4099, and on");
}
TEST_F(ServicesClientTest, AClientWithinTheProcessIsOpenedByTheListenersEndpoint) {
  call("listenWithin");
  call("connectWithin");
  EXPECT_EQ(services::takeJournal(), "open within 90\n");
  call("endListener");
  EXPECT_EQ(services::takeJournal(), "end of endpoint 90\n");
  services::endClient(TinClientInvalid);
  call("dropListener");
  EXPECT_EQ(services::takeJournal(), "close\n");
  expectNothingLeft();
  EXPECT_EQ(liveObjects("NSXPCListener"), 0);
  EXPECT_EQ(liveObjects("NSXPCListenerEndpoint"), 0);
}
TEST_F(ServicesClientTest, AListenerWithoutANameKeepsItselfUntilItsEnd) {
  call("listenWithin");
  call("dropListener");
  EXPECT_EQ(liveObjects("NSXPCListener"), 1);
  settle();
  EXPECT_EQ(liveObjects("NSXPCListener"), 0);
}

TEST_F(ServicesClientTest, FormatsAreWrittenAsAMacWritesThem) {
  EXPECT_EQ(probe("probeFormats"), "");
}
TEST_F(ServicesClientTest, TextsAreJoinedComparedAndRead) { EXPECT_EQ(probe("probeTexts"), ""); }
TEST_F(ServicesClientTest, JsonIsReadAndWhatIsNoneIsRefused) { EXPECT_EQ(probe("probeJson"), ""); }
TEST_F(ServicesClientTest, DatesAreWrittenForPeople) { EXPECT_EQ(probe("probeDates"), ""); }
TEST_F(ServicesClientTest, ASemaphoreIsAnObjectThatAutomaticCountingOwns) {
  EXPECT_EQ(probe("probeSemaphore"), "");
  EXPECT_EQ(liveObjects("OS_dispatch_semaphore"), 0);
}

TEST_F(ServicesClientDeathTest, AMessageBeforeTheResumptionEndsTheProcess) {
  EXPECT_DEATH(call("breakMessageBeforeResume"), "before the connection is resumed is not built");
}
TEST_F(ServicesClientDeathTest, AMessageWithoutAnInterfaceEndsTheProcess) {
  EXPECT_DEATH(call("breakMessageWithoutInterface"), "without an interface of the remote object");
}
TEST_F(ServicesClientDeathTest, AMessageWithoutItsReplyBlockEndsTheProcess) {
  open();
  EXPECT_DEATH(call("breakMessageWithoutReplyBlock"), "is sent without its reply block");
}
TEST_F(ServicesClientDeathTest, AClientThatExportsAnObjectEndsTheProcess) {
  open();
  EXPECT_DEATH(call("breakExportOfClient"), "a client that exports an object is not built");
}
TEST_F(ServicesClientDeathTest, ASecondRequirementEndsTheProcess) {
  EXPECT_DEATH(call("breakSecondRequirement"), "requirement is set twice");
}
TEST_F(ServicesClientDeathTest, WaitingOnTheConnectionsOwnThreadEndsTheProcess) {
  open();
  services::endClient(TinClientInterrupted);
  EXPECT_DEATH(call("askForSwitchAndWait"), "on the connection's own thread is not built");
}
TEST_F(ServicesClientDeathTest, WhatAListenerWithoutANameLacksEndsTheProcess) {
  EXPECT_DEATH(call("breakEndpointBeforeResume"), "that was not resumed is not built");
  EXPECT_DEATH(call("breakEndpointOfService"), "endpoint of a published service is not built");
  EXPECT_DEATH(call("breakEndBeforeResume"), "that was never resumed is not built");
  EXPECT_DEATH(call("breakEndOfService"), "invalidating a published service is not built");
  call("listenWithin");
  EXPECT_DEATH(call("breakRequirementWithin"), "within the process is not built");
}
TEST_F(ServicesClientDeathTest, AnInvalidationBeforeTheResumptionEndsTheProcess) {
  EXPECT_DEATH(call("breakInvalidationBeforeResume"), "that was never resumed is not built");
}

}  // namespace
}  // namespace tinmac
