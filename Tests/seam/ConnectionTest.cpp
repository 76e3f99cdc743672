#include <gtest/gtest.h>

#include <memory>

#include "Base/ErrorObject.h"
#include "FakeHelper.h"
#include "Platform/PowerSources.h"
#include "Platform/WallClock.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {
namespace {

constexpr const char* appOnly = R"(anchor apple generic and identifier "com.korvel.app" and )"
                                R"(certificate leaf[subject.OU] = "ABCDE12345" and )"
                                R"(certificate leaf[field.1.2.840.113635.100.6.1.13] exists)";

struct ConnectionTest : testing::Test {
  /// Makes a call that reaches the helper and is not answered yet.
  AppCallRef keptCall(AppClient& app) {
    helper.keepsReplies = true;
    const AppCallRef call = app.setChargeLimit(50);
    world.runUntilIdle();
    return call;
  }

  FakeHelper helper;
  World world{helper.options()};
};

TEST_F(ConnectionTest, EveryOperationReachesTheExportedObjectAndIsAnswered) {
  const auto app = world.connectApp();
  for (const AppCallRef& call :
       {app->ping(), app->capabilities(), app->setChargeLimit(77), app->clearChargeLimit(),
        app->forceDischarge(true), app->forceDischarge(false), app->setClamshellKeepAwake(true),
        app->releaseLimitUntilFullThenRestore(), app->cancelTopUp(), app->getState(),
        app->resetAllSMCKeys(), app->quit()}) {
    app->await(call);
    EXPECT_TRUE(call->answered) << call->selector;
  }
  world.runUntilIdle();
  EXPECT_EQ(helper.notes,
            "accepted ping capabilities setChargeLimit(77) clearChargeLimit forceDischarge(on) "
            "forceDischarge(off) setClamshellKeepAwake(on) releaseLimitUntilFullThenRestore "
            "cancelTopUp getState resetAllSMCKeys quit ");
  EXPECT_EQ(app->calls()[0]->pid, 501U);
  EXPECT_EQ(app->calls()[1]->data, "{}");
  EXPECT_TRUE(app->calls()[2]->success);
  EXPECT_TRUE(world.violations().empty());
}

TEST_F(ConnectionTest, RepliesAreJournalled) {
  const auto app = world.connectApp();
  app->await(app->ping());
  app->await(app->getState());
  helper.error = korvel::ErrorObject{
      "KorvelHelperError", 400, {{korvel::localizedDescriptionKey, "out of range"}}};
  app->await(app->setChargeLimit(7));
  helper.error.reset();
  app->await(app->setChargeLimit(70));
  EXPECT_EQ(world.journal().text("reply"),
            "0.000 reply ping 501\n"
            "0.000 reply getState empty\n"
            "0.000 reply setChargeLimit failed 400 \"out of range\"\n"
            "0.000 reply setChargeLimit ok\n");
  EXPECT_EQ(app->calls()[2]->errorCode(), 400);
  EXPECT_FALSE(app->calls()[2]->success);
}

TEST_F(ConnectionTest, APeerThatFailsTheRequirementIsCutOffBeforeAnythingIsDelivered) {
  helper.requirement = appOnly;
  const auto app = world.connectApp("other-team");
  world.runUntilIdle();
  EXPECT_EQ(helper.notes, "accepted ");
  const AppCallRef first = app->ping();
  const AppCallRef second = app->setChargeLimit(50);
  world.runUntilIdle();
  EXPECT_EQ(helper.notes, "accepted invalidated ");
  EXPECT_TRUE(first->failed);
  EXPECT_TRUE(second->failed);
  EXPECT_FALSE(app->connected());
  EXPECT_TRUE(app->ping()->failed);
  EXPECT_EQ(world.journal().text("app"),
            "0.000 app   other-team 901 connects\n"
            "0.000 app   other-team 901 cut off: requirement not satisfied\n");
}

TEST_F(ConnectionTest, EveryIdentityIsJudgedByTheRequirement) {
  helper.requirement = appOnly;
  for (const std::string& identity : world.machine().signatures.names()) {
    const auto client = world.connectApp(identity);
    client->await(client->ping());
    EXPECT_EQ(client->calls()[0]->answered, identity == "app") << identity;
  }
}

TEST_F(ConnectionTest, WithoutARequirementEverybodyIsServed) {
  const auto client = world.connectApp("unsigned");
  EXPECT_TRUE(client->await(client->ping()).answered);
}

TEST_F(ConnectionTest, ARequirementThatDoesNotParseIsReported) {
  helper.requirement = "identifier";
  const auto app = world.connectApp();
  world.runUntilIdle();
  ASSERT_EQ(world.violations().size(), 1U);
  EXPECT_EQ(world.violations()[0].substr(0, 27), "requirement does not parse:");
}

TEST_F(ConnectionTest, ARefusedConnectionIsDropped) {
  helper.accepts = false;
  const auto app = world.connectApp();
  const AppCallRef call = app->ping();
  world.runUntilIdle();
  EXPECT_TRUE(call->failed);
  EXPECT_EQ(helper.notes, "");
  EXPECT_EQ(world.journal().text("app"),
            "0.000 app   app 901 connects\n0.000 app   app 901 refused\n");
}

TEST_F(ConnectionTest, AConnectionThatIsNotResumedDeliversNothing) {
  helper.resumes = false;
  const auto app = world.connectApp();
  const AppCallRef call = app->ping();
  world.runFor(10);
  EXPECT_FALSE(call->over());
  EXPECT_EQ(helper.notes, "accepted ");
}

TEST_F(ConnectionTest, AnotherSelectorIsNotDeliveredAndEndsItsConnection) {
  const auto app = world.connectApp();
  const AppCallRef unknown = app->send("launchMissiles");
  app->await(unknown);
  EXPECT_TRUE(unknown->failed);
  EXPECT_TRUE(app->await(app->ping()).failed);
  const auto second = world.connectApp();
  EXPECT_TRUE(second->await(second->ping()).answered) << "others are served";
}

TEST_F(ConnectionTest, AnotherProtocolIsNotDelivered) {
  helper.interfaceName = "SomeOtherProtocol";
  const auto app = world.connectApp();
  EXPECT_TRUE(app->await(app->ping()).failed);
}

TEST_F(ConnectionTest, MessagesOfOneConnectionAreDeliveredInOrderOneAtATime) {
  helper.onCall = [this](const std::string& call) {
    world.faults().setLatency(SeamCall::clockNow, call == "ping" ? 1 : 0);
    helper.seam->clock.now();
    helper.note("/" + call);
  };
  const auto app = world.connectApp();
  app->ping();
  app->setChargeLimit(50);
  world.runFor(5);
  EXPECT_EQ(helper.notes, "accepted ping /ping setChargeLimit(50) /setChargeLimit(50) ");
}

TEST_F(ConnectionTest, ABusyConnectionHoldsUpNoOther) {
  helper.onCall = [this](const std::string& call) {
    world.faults().setLatency(SeamCall::clockNow, call == "ping" ? 5 : 0);
    helper.seam->clock.now();
    helper.note("/" + call);
  };
  const auto busy = world.connectApp();
  const auto other = world.connectApp();
  busy->ping();
  other->cancelTopUp();
  world.runFor(10);
  EXPECT_EQ(helper.notes, "accepted ping accepted cancelTopUp /cancelTopUp /ping ");
}

TEST_F(ConnectionTest, TheCallersPidIsKnownDuringACallAndOnlyThere) {
  std::vector<std::optional<std::int32_t>> seen;
  helper.onCall = [&](const std::string&) {
    seen.push_back(helper.seam->xpc.currentConnectionPid());
    helper.seam->dispatch.makeSerialQueue("q")->async(
        [&] { seen.push_back(helper.seam->xpc.currentConnectionPid()); });
  };
  const auto one = world.connectApp();
  const auto two = world.connectApp();
  two->await(two->ping());
  one->await(one->ping());
  world.runUntilIdle();
  EXPECT_EQ(seen, (std::vector<std::optional<std::int32_t>>{two->pid(), std::nullopt, one->pid(),
                                                            std::nullopt}));
}

TEST_F(ConnectionTest, DisconnectingInvalidatesOnceAfterTheMessagesBefore) {
  const auto app = world.connectApp();
  const AppCallRef call = app->setChargeLimit(50);
  app->disconnect();
  app->disconnect();
  EXPECT_TRUE(call->failed);
  world.runUntilIdle();
  EXPECT_EQ(helper.notes, "accepted setChargeLimit(50) invalidated ") << "gone before it was seen";
  helper.notes.clear();
  const auto second = world.connectApp();
  second->await(second->ping());
  second->setChargeLimit(60);
  second->disconnect();
  EXPECT_FALSE(second->connected());
  world.runUntilIdle();
  EXPECT_EQ(helper.notes, "accepted ping setChargeLimit(60) invalidated ");
}

TEST_F(ConnectionTest, ADyingClientIsGoneForTheSystemToo) {
  const auto app = world.connectApp();
  app->await(app->ping());
  EXPECT_NE(world.machine().signatures.ofPid(app->pid()), nullptr);
  app->kill();
  world.runUntilIdle();
  EXPECT_EQ(world.machine().signatures.ofPid(app->pid()), nullptr);
  EXPECT_EQ(helper.notes, "accepted ping invalidated ");
  EXPECT_EQ(world.journal().text("app"),
            "0.000 app   app 901 connects\n0.000 app   app 901 dies\n");
}

TEST_F(ConnectionTest, AnInterruptionIsNotAnInvalidation) {
  const auto app = world.connectApp();
  const AppCallRef call = keptCall(*app);
  app->interrupt();
  world.runUntilIdle();
  EXPECT_EQ(helper.notes, "accepted setChargeLimit(50) interrupted ");
  EXPECT_TRUE(call->failed);
  EXPECT_TRUE(app->connected());
  EXPECT_TRUE(app->await(app->ping()).answered);
  helper.kept.clear();
}

TEST_F(ConnectionTest, AReplyMayComeLateAndFromAnotherThread) {
  helper.keepsReplies = true;
  const auto app = world.connectApp();
  const AppCallRef call = app->setChargeLimit(50);
  world.runFor(5);
  EXPECT_FALSE(call->over());
  world.onMain([this] { helper.kept.at(0)(true, std::nullopt); });
  EXPECT_TRUE(call->answered);
}

TEST_F(ConnectionTest, AReplyToAClientThatIsGoneIsStillOneReply) {
  const auto app = world.connectApp();
  const AppCallRef call = keptCall(*app);
  app->disconnect();
  world.onMain([this] { helper.kept.at(0)(true, std::nullopt); });
  EXPECT_TRUE(call->failed);
  EXPECT_EQ(world.journal().text("reply"), "0.000 reply setChargeLimit ok\n");
  EXPECT_TRUE(world.violations().empty());
}

TEST_F(ConnectionTest, ADroppedReplyIsAViolation) {
  helper.dropsReplies = true;
  const auto app = world.connectApp();
  const AppCallRef call = app->setChargeLimit(50);
  world.runUntilIdle();
  EXPECT_TRUE(call->failed);
  EXPECT_EQ(world.violations(), std::vector<std::string>{"reply dropped, setChargeLimit"});
}

TEST_F(ConnectionTest, AReplyDroppedByADyingHelperIsNot) {
  const auto app = world.connectApp();
  const AppCallRef call = keptCall(*app);
  world.killHelper();
  helper.kept.clear();
  EXPECT_TRUE(call->failed);
  EXPECT_TRUE(world.violations().empty());
}

// A killed thread unwinds at its next call; before that it may still send its reply.
TEST_F(ConnectionTest, AReplyOfADeadHelperIsHeardByNobody) {
  helper.onCall = [this](const std::string&) {
    world.faults().killAtCall(world.callCounts().total + 1);
    helper.seam->powerSources.release(0);  // A release never ends the thread that makes it.
    world.faults().clear();
  };
  for (const auto& send : {&AppClient::ping, &AppClient::getState, &AppClient::clearChargeLimit}) {
    const auto app = world.connectApp();
    const AppCallRef call = ((*app).*send)(0);
    world.runUntil([&call] { return call->over(); }, 1);
    EXPECT_TRUE(call->failed);
    EXPECT_EQ(call->pid, 0U);
    EXPECT_FALSE(world.helperRunning());
  }
  EXPECT_EQ(helper.notes, "accepted ping accepted getState accepted clearChargeLimit ");
  EXPECT_EQ(world.journal().text("reply"), "");
  EXPECT_TRUE(world.violations().empty());
}

TEST_F(ConnectionTest, AReplyOfAnEarlierLifeIsHeardByNobody) {
  const auto app = world.connectApp();
  const AppCallRef call = keptCall(*app);
  world.killHelper();
  EXPECT_TRUE(app->await(app->ping()).answered) << "by the next life";
  helper.kept.at(0)(true, std::nullopt);
  EXPECT_TRUE(call->failed);
  EXPECT_FALSE(call->answered);
  EXPECT_EQ(world.journal().text("reply"), "0.000 reply ping 502\n");
}

TEST_F(ConnectionTest, AnErrorOfAnAllowedClassArrivesWhole) {
  helper.error = korvel::ErrorObject{
      "KorvelHelperError", 500, {{"smcResult", 134}, {korvel::localizedDescriptionKey, "no"}}};
  const auto app = world.connectApp();
  const AppCall& call = app->await(app->setChargeLimit(50));
  ASSERT_TRUE(call.error);
  EXPECT_EQ(*call.error, *helper.error);
}

TEST_F(ConnectionTest, AnErrorWithAValueOfAnotherClassIsRejected) {
  helper.error = korvel::ErrorObject{"D", 1, {{"when", korvel::Date{0}}}};
  const auto app = world.connectApp();
  const AppCall& call = app->await(app->setChargeLimit(50));
  EXPECT_TRUE(call.failed);
  EXPECT_EQ(world.violations(),
            std::vector<std::string>{"reply rejected, setChargeLimit: the value of when is not of "
                                     "an allowed class"});
}

TEST_F(ConnectionTest, BytesThatTheInterfaceDoesNotAllowAreRejected) {
  namespace selectors = korvel::KorvelHelperSelector;
  helper.laterSettings = {{selectors::getState, 0, {korvel::ReplyClass::String}},
                          {selectors::capabilities, 0, {korvel::ReplyClass::Dictionary}}};
  const auto app = world.connectApp();
  EXPECT_TRUE(app->await(app->getState()).failed);
  EXPECT_TRUE(app->await(app->capabilities()).failed);
  EXPECT_EQ(world.violations(),
            (std::vector<std::string>{
                "reply rejected, getState: bytes are not among the allowed classes",
                "reply rejected, capabilities: bytes are not among the allowed classes"}));
}

TEST_F(ConnectionTest, ADefaultReplyClassStillLetsErrorsThrough) {
  helper.error = korvel::ErrorObject{"D", 501, {{korvel::localizedDescriptionKey, "no"}}};
  const auto app = world.connectApp();
  EXPECT_EQ(app->await(app->setClamshellKeepAwake(true)).errorCode(), 501);
}

TEST_F(ConnectionTest, AHelperThatGoesAwayFailsPendingCallsAndTheNextCallConnectsAgain) {
  const auto app = world.connectApp();
  const AppCallRef pending = keptCall(*app);
  world.killHelper();
  EXPECT_TRUE(pending->failed);
  EXPECT_FALSE(app->connected());
  helper.kept.clear();
  EXPECT_EQ(app->await(app->ping()).pid, 502U);
}

TEST_F(ConnectionTest, AMessageOnItsWayToADyingHelperReachesTheNextOne) {
  world.launchd().job.startOnDemand = false;
  world.startHelper();
  world.runUntilIdle();
  const auto app = world.connectApp();
  const AppCallRef call = app->ping();
  world.killHelper();
  EXPECT_FALSE(call->over());
  world.startHelper();
  EXPECT_EQ(app->await(call).pid, 502U);
}

TEST(ListenerTest, AnUnknownServiceIsReported) {
  World world;
  korvel::Platform& platform = world.startBareHelper();
  const auto listener = platform.xpc.makeListener("com.example.other");
  listener->resume();
  EXPECT_EQ(world.violations().size(), 1U);
}

TEST(ListenerTest, ADelegateThatIsGoneRefusesEverybody) {
  World world;
  world.launchd().job.startOnDemand = false;
  korvel::Platform& platform = world.startBareHelper();
  const auto listener = platform.xpc.makeListener(korvel::KorvelHelperMachServiceName);
  listener->resume();
  const auto app = world.connectApp();
  EXPECT_TRUE(app->await(app->ping()).failed);
}

}  // namespace
}  // namespace virtualmac
