// What the protocol looks like from the other end: errors, payloads, unknown messages.

#include "KorvelHelperProtocol.h"
#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

TEST(WireTest, RefusedSmcWriteArrivesWithItsResultAsANumber) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().smc.key("CHIE")->writeResult = 134;
  const AppCall& call = bench.call(bench.app->forceDischarge(false));
  ASSERT_TRUE(call.error.has_value());
  EXPECT_EQ(call.error->domain, "KorvelHelperError");
  EXPECT_EQ(call.error->code, 500);
  EXPECT_EQ(call.error->userInfo,
            (PropertyValue::Dictionary{
                {"NSLocalizedDescription",
                 PropertyValue("kSMCWriteKey failed (kIOReturn=0, smcResult=134)")},
                {"smcResult", PropertyValue(134)}}));
}

TEST(WireTest, MissingKeyArrivesAs503WithoutFurtherEntries) {
  Bench bench;
  bench.bootDischarging();
  bench.mac().smc.removeKey("CHIE");
  bench.mac().smc.invalidateConnections();  // So that the key's size is asked for again.
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.call(bench.app->clearChargeLimit());
  const AppCall& call = bench.call(bench.app->forceDischarge(false));
  ASSERT_TRUE(call.error.has_value());
  EXPECT_EQ(call.error->code, 503);
  EXPECT_EQ(call.error->userInfo,
            (PropertyValue::Dictionary{
                {"NSLocalizedDescription", PropertyValue("SMC key CHIE not found on this host")}}));
}

TEST(WireTest, NoSmcArrivesAs503) {
  Bench bench;
  bench.mac().smc.setValue("CHTE", {1, 0, 0, 0});
  bench.boot();
  bench.mac().smc.servicePresent = false;
  bench.mac().smc.invalidateConnections();
  bench.call(bench.app->clearChargeLimit());
  EXPECT_EQ(outcome(bench.call(bench.app->clearChargeLimit())),
            "failed 503 AppleSMC service unavailable");
}

TEST(WireTest, NativeFailureArrivesAs500) {
  Bench bench("native-only");
  bench.boot();
  bench.mac().powerUI.setError = "busy";
  EXPECT_EQ(outcome(bench.call(bench.app->clearChargeLimit())),
            "failed 500 Native charge control failed: PowerUI call failed: busy");
}

TEST(WireTest, RefusalOfAnArgumentArrivesAs400WithOnlyItsDescription) {
  Bench bench;
  bench.boot();
  const AppCall& call = bench.call(bench.app->setChargeLimit(7));
  EXPECT_EQ(call.errorCode(), 400);
  EXPECT_EQ(call.error->userInfo.size(), 1U);
}

TEST(WireTest, DescriptionInTheUserInfoWinsOverTheMessage) {
  const ErrorObject error =
      makeError(400, "message",
                {{"NSLocalizedDescription", PropertyValue("given")}, {"x", PropertyValue(1)}});
  EXPECT_EQ(error.localizedDescription(), "given");
  EXPECT_EQ(error.userInfo.size(), 2U);
}

TEST(WireTest, StateAndCapabilitiesDecodeOnTheClientsSide) {
  Bench bench;
  bench.boot();
  EXPECT_TRUE(bench.app->state().has_value());
  EXPECT_TRUE(bench.app->capabilityRecord().has_value());
}

TEST(WireTest, EightRepliesAreTypedAndKeepAwakeIsNot) {
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

TEST(WireTest, UnknownMessageReachesNothing) {
  Bench bench;
  bench.boot();
  const AppCallRef call = bench.app->send("setChargeCurrent:reply:");
  bench.world.runUntilIdle();
  EXPECT_TRUE(call->failed);
  EXPECT_THAT(bench.since("log smc disk"), IsEmpty());
}

TEST(WireTest, EveryCallOfAnOrdinaryDayIsAnsweredExactlyOnce) {
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
