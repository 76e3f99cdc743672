// These tests see the protocol from the client's end: errors, payloads, unknown messages.

#include "KorvelHelperProtocol.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

using WireTest = OnBench;

TEST_F(WireTest, RefusedSmcWriteArrivesWithItsResultAsANumber) {
  bootDischarging();
  mac().smc.key("CHIE")->writeResult = 134;
  const AppCall& answered = call(app->forceDischarge(false));
  ASSERT_TRUE(answered.error.has_value());
  EXPECT_EQ(answered.error->domain, "KorvelHelperError");
  EXPECT_EQ(answered.error->code, 500);
  EXPECT_EQ(answered.error->userInfo,
            (PropertyValue::Dictionary{
                {"NSLocalizedDescription",
                 PropertyValue("kSMCWriteKey failed (kIOReturn=0, smcResult=134)")},
                {"smcResult", PropertyValue(134)}}));
}

TEST_F(WireTest, MissingKeyArrivesAs503WithoutFurtherEntries) {
  bootDischarging();
  mac().smc.removeKey("CHIE");
  mac().smc.invalidateConnections();  // So that the key's size is asked for again.
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  call(app->clearChargeLimit());
  const AppCall& answered = call(app->forceDischarge(false));
  ASSERT_TRUE(answered.error.has_value());
  EXPECT_EQ(answered.error->code, 503);
  EXPECT_EQ(answered.error->userInfo,
            (PropertyValue::Dictionary{
                {"NSLocalizedDescription", PropertyValue("SMC key CHIE not found on this host")}}));
}

TEST_F(WireTest, NoSmcArrivesAs503) {
  mac().smc.setValue("CHTE", {1, 0, 0, 0});
  boot();
  mac().smc.servicePresent = false;
  mac().smc.invalidateConnections();
  call(app->clearChargeLimit());
  EXPECT_EQ(ask(app->clearChargeLimit()), "failed 503 AppleSMC service unavailable");
}

TEST_F(WireTest, NativeFailureArrivesAs500) {
  Bench bench("native-only");
  bench.boot();
  bench.mac().powerUI.setError = "busy";
  EXPECT_EQ(bench.ask(bench.app->clearChargeLimit()),
            "failed 500 Native charge control failed: PowerUI call failed: busy");
}

TEST_F(WireTest, RefusalOfAnArgumentArrivesAs400WithOnlyItsDescription) {
  boot();
  const AppCall& answered = call(app->setChargeLimit(7));
  EXPECT_EQ(answered.errorCode(), 400);
  EXPECT_EQ(answered.error->userInfo.size(), 1U);
}

TEST_F(WireTest, DescriptionInTheUserInfoWinsOverTheMessage) {
  const ErrorObject error =
      makeError(400, "message",
                {{"NSLocalizedDescription", PropertyValue("given")}, {"x", PropertyValue(1)}});
  EXPECT_EQ(error.localizedDescription(), "given");
  EXPECT_EQ(error.userInfo.size(), 2U);
}

TEST_F(WireTest, StateAndCapabilitiesDecodeOnTheClientsSide) {
  boot();
  EXPECT_TRUE(app->state().has_value());
  EXPECT_TRUE(app->capabilityRecord().has_value());
}

TEST_F(WireTest, EightRepliesAreTypedAndKeepAwakeIsNot) {
  XPCInterface interface = makeHelperInterface();
  applyTypedReplyClasses(interface);
  std::vector<std::string> settings;
  for (const ReplyClassSetting& each : interface.replyClasses) {
    settings.push_back(std::string(each.selector) + " " + std::to_string(each.argumentIndex) + " " +
                       std::to_string(each.classes.size()));
  }
  EXPECT_THAT(settings, ElementsAre("capabilitiesWithReply: 0 1", "getStateWithReply: 0 1",
                                    "setChargeLimit:reply: 1 4", "clearChargeLimitWithReply: 1 4",
                                    "forceDischarge:reply: 1 4",
                                    "releaseLimitUntilFullThenRestoreWithReply: 1 4",
                                    "resetAllSMCKeysWithReply: 1 4", "cancelTopUpWithReply: 1 4"));
}

TEST_F(WireTest, UnknownMessageEndsItsConnectionAndReachesNothing) {
  boot();
  const AppCallRef call = app->send("setChargeCurrent:reply:");
  world.runUntilIdle();
  EXPECT_TRUE(call->failed);
  EXPECT_FALSE(app->connected());
  EXPECT_THAT(since("smc disk"), IsEmpty());
  EXPECT_TRUE(world.connectApp()->state());
}

TEST_F(WireTest, EveryCallOfAnOrdinaryDayIsAnsweredExactlyOnce) {
  Bench bench("both-families");
  bench.bootArmedDischarge();
  for (int round = 0; round < 3; ++round) {
    const std::vector<AppCallRef> calls = {
        bench.app->ping(),
        bench.app->capabilities(),
        bench.app->getState(),
        bench.app->setChargeLimit(60),
        bench.app->forceDischarge(true),
        bench.app->setClamshellKeepAwake(true),
        bench.app->releaseLimitUntilFullThenRestore(),
        bench.app->cancelTopUp(),
        bench.app->forceDischarge(false),
        bench.app->setClamshellKeepAwake(false),
        bench.app->clearChargeLimit(),
        bench.app->resetAllSMCKeys(),
    };
    bench.run(1);
    for (const AppCallRef& call : calls) EXPECT_TRUE(call->answered) << call->selector;
  }
}

}  // namespace
}  // namespace korvel::test
