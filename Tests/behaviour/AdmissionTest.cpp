// The helper admits only certain callers, and counts their connections.

#include <ostream>
#include <tuple>
#include <type_traits>

#include "HelperEntry.h"
#include "HelperImpl.h"
#include "KorvelHelperProtocol.h"
#include "Tests/behaviour/Bench.h"
#include "Tests/behaviour/Doubles.h"
#include "Tests/behaviour/EntryDoubles.h"
#include "Tests/behaviour/InterruptedSeam.h"
#include "VirtualMac/InProcess/ReplyTransport.h"

namespace korvel::test {
namespace {

class DelegateTest : public OnBench {
 protected:
  void SetUp() override {
    Platform& platform = world.startBareHelper();
    core = HelperImpl::create(platform);
    delegate = std::make_shared<HelperListenerDelegate>(platform, core, "ABCDE12345");
    teamless = std::make_shared<HelperListenerDelegate>(platform, core, "");
    world.runUntilIdle();
    mark();
  }

  /// Accepts the connection, waits until the core has counted it, and marks.
  void accept() {
    EXPECT_TRUE(delegate->shouldAcceptNewConnection(connection));
    world.runUntilIdle();
    mark();
  }

  std::shared_ptr<HelperImpl> core;
  std::shared_ptr<HelperListenerDelegate> delegate, teamless;
  RecordingConnection connection;
};

TEST_F(DelegateTest, PreparesAConnectionInThisOrderBeforeItIsResumed) {
  EXPECT_TRUE(delegate->shouldAcceptNewConnection(connection));
  EXPECT_THAT(connection.steps,
              ElementsAre("interface", "object", "requirement", "invalidation handler",
                          "interruption handler", "resume"));
  EXPECT_EQ(connection.object, core) << "every client has the one core";
  EXPECT_EQ(connection.interface.protocolName, "KorvelHelperProtocol");
  EXPECT_EQ(connection.interface.replyClasses.size(), 8U);
  EXPECT_EQ(connection.requirement, strictRequirement("com.korvel.app", "ABCDE12345"));
  EXPECT_THAT(logs("Listener"),
              ElementsAre("default accepted XPC connection (requirement set, team=ABCDE12345)"));
  EXPECT_THAT(logs(), IsEmpty()) << "the core is told by a post, not by a call";
  world.runUntilIdle();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=1)"));
}

TEST_F(DelegateTest, WithoutATeamNothingIsResumedCountedOrGivenHandlers) {
  EXPECT_FALSE(teamless->shouldAcceptNewConnection(connection));
  EXPECT_THAT(connection.steps, ElementsAre("interface", "object"));
  world.runUntilIdle();
  EXPECT_THAT(since("log"),
              ElementsAre("log Listener fault \"Release build with unreadable Team ID — refusing "
                          "XPC connection\""));
}

TEST_F(DelegateTest, WithoutATeamEveryAttemptIsOneFaultLineAndNobodyIsCounted) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    EXPECT_FALSE(teamless->shouldAcceptNewConnection(connection));
  }
  run(60);
  EXPECT_THAT(logs("Listener"),
              ::testing::AllOf(::testing::SizeIs(3),
                               ::testing::Each("fault Release build with unreadable Team ID — "
                                               "refusing XPC connection")));
  EXPECT_THAT(logs(), IsEmpty()) << "the core was told of a client";
}

TEST_F(DelegateTest, EveryAcceptedConnectionIsCountedInOnceAndOutOnce) {
  RecordingConnection second;
  delegate->shouldAcceptNewConnection(connection);
  delegate->shouldAcceptNewConnection(second);
  second.invalidation();
  connection.invalidation();
  world.runUntilIdle();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=1)",
                                  "default client connected (count=2)",
                                  "default client disconnected (count=1)",
                                  "default client disconnected (count=0)"));
}

// A delegate cannot be made without the team that it must require.
static_assert(!std::is_default_constructible_v<HelperListenerDelegate>);

TEST_F(DelegateTest, RequirementThatDoesNotParseIsARefusal) {
  connection.requirementParses = false;
  EXPECT_FALSE(delegate->shouldAcceptNewConnection(connection));
  EXPECT_THAT(connection.steps, ElementsAre("interface", "object", "requirement"));
  world.runUntilIdle();
  EXPECT_THAT(since("log"),
              ElementsAre("log Listener fault \"code-signing requirement does not parse — refusing "
                          "XPC connection\""));
}

TEST_F(DelegateTest, AnEndThatIsToldTwiceCountsOutOnce) {
  delegate->shouldAcceptNewConnection(connection);
  connection.invalidation();
  connection.invalidation();
  world.runUntilIdle();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=1)",
                                  "default client disconnected (count=0)"));
}

/// A moment between the setting of the invalidation handler and the end of the delegate's method.
struct EarlyMoment {
  const char* name;
  const char* step = "";  ///< The step of the connection at which it ends.
  bool inLine = false;    ///< While the acceptance is being logged.
  bool afterLine = false;
  bool beforeLock = false;  ///< After the core was told of the client.
  bool afterLock = false;   ///< After the delegate has noted that as well.

  [[nodiscard]] bool beforeTheLineIsWritten() const { return inLine || *step != '\0'; }
  friend std::ostream& operator<<(std::ostream& out, const EarlyMoment& moment) {
    return out << moment.name;
  }
};

class EarlyEndTest : public OnBench, public ::testing::WithParamInterface<EarlyMoment> {
 protected:
  EarlyEndTest() {
    core = HelperImpl::create(real);
    world.runUntilIdle();
    mark();
  }

  /// Accepts one connection, which ends at the parameter's moment. `watched` runs just before.
  void accept(HelperListenerDelegate& delegate, const std::function<void()>& watched = [] {}) {
    const EarlyMoment& moment = GetParam();
    const auto end = [this, watched] {
      watched();
      connection.invalidation();
    };
    connection.onStep = [&moment, end](const std::string& step) {
      if (step == moment.step) end();
    };
    log.line = "accepted XPC connection";
    if (moment.inLine) log.before = end;
    if (moment.afterLine) log.after = end;
    if (moment.beforeLock) locks.beforeLock = end;
    if (moment.afterLock) locks.afterUnlock = end;
    EXPECT_TRUE(delegate.shouldAcceptNewConnection(connection));
  }

  static constexpr const char* accepted =
      "default accepted XPC connection (requirement set, team=ABCDE12345)";

  Platform& real = world.startBareHelper();
  InterruptedLog log{real.log};
  InterruptedLocks locks{real.dispatch, "connectionLock"};
  Platform platform = with(real, locks, log);
  std::shared_ptr<HelperImpl> core;
  RecordingConnection connection;
};

// The connection's handlers run on threads of their own, so an end can overtake the acceptance.
TEST_P(EarlyEndTest, IsCountedAfterItsBeginning) {
  const auto delegate = std::make_shared<HelperListenerDelegate>(platform, core, "ABCDE12345");
  accept(*delegate);
  world.runUntilIdle();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=1)",
                                  "default client disconnected (count=0)"));
  const Lines listener = logs("Listener");
  ASSERT_EQ(listener.size(), 2U);
  const std::size_t ended = GetParam().beforeTheLineIsWritten() ? 0 : 1;
  EXPECT_THAT(listener[ended], ::testing::StartsWith("default connection invalidated #fileID="))
      << "the end is logged when it comes";
  EXPECT_EQ(listener[1 - ended], accepted);
}

TEST_P(EarlyEndTest, IsCountedAlsoWhenTheDelegateIsGone) {
  HelperListenerDelegate standing(platform, core, "ABCDE12345");
  std::shared_ptr<HelperListenerDelegate> owner(&standing, [](HelperListenerDelegate*) {});
  accept(standing, [&owner] { owner.reset(); });
  world.runUntilIdle();
  EXPECT_THAT(logs("Listener"), ElementsAre(accepted)) << "only the end's line is skipped";
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=1)",
                                  "default client disconnected (count=0)"));
}

TEST_P(EarlyEndTest, LeavesTheCountOfOthersAlone) {
  const auto delegate = std::make_shared<HelperListenerDelegate>(platform, core, "ABCDE12345");
  RecordingConnection other;
  delegate->shouldAcceptNewConnection(other);
  world.runUntilIdle();
  mark();
  accept(*delegate);
  other.invalidation();
  world.runUntilIdle();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=2)",
                                  "default client disconnected (count=1)",
                                  "default client disconnected (count=0)"));
}

INSTANTIATE_TEST_SUITE_P(
    , EarlyEndTest,
    ::testing::Values(EarlyMoment{.name = "AsItsHandlerIsSet", .step = "invalidation handler"},
                      EarlyMoment{.name = "WhenBothHandlersAreSet", .step = "interruption handler"},
                      EarlyMoment{.name = "InsideResume", .step = "resume"},
                      EarlyMoment{.name = "DuringTheLogLine", .inLine = true},
                      EarlyMoment{.name = "BetweenLineAndCount", .afterLine = true},
                      EarlyMoment{.name = "DuringTheCount", .beforeLock = true},
                      EarlyMoment{.name = "AfterTheCount", .afterLock = true}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(DelegateTest, InvalidationNamesItsPlaceInTheEntryAndCountsOut) {
  accept();
  connection.invalidation();
  ASSERT_EQ(logs("Listener").size(), 1U);
  EXPECT_THAT(logs("Listener").front(),
              ::testing::MatchesRegex(
                  "default connection invalidated #fileID=KorvelHelper/main\\.cpp line=[0-9]+"));
  world.runUntilIdle();
  EXPECT_THAT(logs(), ElementsAre("default client disconnected (count=0)"));
}

TEST_F(DelegateTest, InvalidationStillCountsOutAfterTheDelegateIsGone) {
  accept();
  delegate.reset();
  connection.invalidation();
  connection.interruption();
  world.runUntilIdle();
  EXPECT_THAT(since("log"),
              ElementsAre("log HelperImpl default \"client disconnected (count=0)\""));
}

TEST_F(DelegateTest, HandlersDoNotKeepTheDelegateAlive) {
  delegate->shouldAcceptNewConnection(connection);
  const std::weak_ptr<HelperListenerDelegate> watched = delegate;
  delegate.reset();
  EXPECT_TRUE(watched.expired());
}

TEST_F(DelegateTest, InterruptionIsALineAndNothingElse) {
  accept();
  connection.interruption();
  world.runUntilIdle();
  EXPECT_THAT(since("log"), ElementsAre("log Listener default \"connection interrupted\""));
}

TEST(RequirementTest, HasFourClausesWithBothNamesInQuotes) {
  EXPECT_EQ(strictRequirement("com.korvel.app", "ABCDE12345"),
            "anchor apple generic and identifier \"com.korvel.app\" and certificate "
            "leaf[subject.OU] = \"ABCDE12345\" and certificate "
            "leaf[field.1.2.840.113635.100.6.1.13] exists");
}

TEST(RequirementTest, EscapesNothing) {
  EXPECT_EQ(strictRequirement("a\"b", "c\\d"),
            "anchor apple generic and identifier \"a\"b\" and certificate leaf[subject.OU] = "
            "\"c\\d\" and certificate leaf[field.1.2.840.113635.100.6.1.13] exists");
}

using AdmissionTest = OnBench;

TEST_F(AdmissionTest, OneOfTwoLeavingLeavesOneCounted) {
  boot();
  const auto second = connectAnother();
  app->disconnect();
  run(60);
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=2)",
                                  "default client disconnected (count=1)"));
  EXPECT_TRUE(second->connected());
}

TEST_F(AdmissionTest, InterruptedConnectionStillCounts) {
  bootWithLimit(50);
  app->interrupt();
  run(60);
  EXPECT_THAT(logs("Listener"), ElementsAre("default connection interrupted"));
  EXPECT_THAT(logs(), IsEmpty());
  const auto second = connectAnother();
  EXPECT_THAT(logs(), ElementsAre("default client connected (count=2)"));
}

class StrangerTest : public ::testing::TestWithParam<const char*> {};

TEST_P(StrangerTest, IsCutOffBeforeAnyMessageReachesTheCore) {
  Bench bench;
  bench.boot();
  const auto stranger = bench.world.connectApp(GetParam());
  const AppCallRef ping = stranger->ping();
  const AppCallRef limit = stranger->setChargeLimit(50);
  bench.world.runUntilIdle();
  EXPECT_TRUE(ping->failed);
  EXPECT_TRUE(limit->failed);
  EXPECT_THAT(bench.since("disk smc reply"), IsEmpty());
  EXPECT_THAT(bench.logs(), ElementsAre("default client connected (count=2)",
                                        "default client disconnected (count=1)"))
      << "accepted, then gone: counted in once and out once, and no audit line";
}

INSTANTIATE_TEST_SUITE_P(Identities, StrangerTest,
                         ::testing::Values("other-identifier", "other-team", "development",
                                           "ad-hoc", "unsigned", "apple", "helper"),
                         [](const auto& named) {
                           std::string name = named.param;
                           std::erase(name, '-');
                           return name;
                         });

TEST_F(DelegateTest, ExportsTheListedReplyClassesAndNoOthers) {
  delegate->shouldAcceptNewConnection(connection);
  using Row = std::tuple<std::string, unsigned, std::vector<ReplyClass>>;
  std::vector<Row> rows;
  for (const ReplyClassSetting& set : connection.interface.replyClasses) {
    rows.emplace_back(set.selector, set.argumentIndex, set.classes);
  }
  const std::vector<ReplyClass> data = {ReplyClass::Data};
  const std::vector<ReplyClass> error = {ReplyClass::Error, ReplyClass::String, ReplyClass::Number,
                                         ReplyClass::Dictionary};
  EXPECT_THAT(
      rows, ElementsAre(Row{"capabilitiesWithReply:", 0, data}, Row{"getStateWithReply:", 0, data},
                        Row{"setChargeLimit:reply:", 1, error},
                        Row{"clearChargeLimitWithReply:", 1, error},
                        Row{"forceDischarge:reply:", 1, error},
                        Row{"releaseLimitUntilFullThenRestoreWithReply:", 1, error},
                        Row{"resetAllSMCKeysWithReply:", 1, error},
                        Row{"cancelTopUpWithReply:", 1, error}));
}

TEST_F(DelegateTest, ExportedInterfaceHoldsBackAnErrorWithBytesInEveryReplyButKeepAwakes) {
  delegate->shouldAcceptNewConnection(connection);
  const ErrorObject withBytes{"Domain", 1, {{"bytes", PropertyValue(PropertyValue::Data{1})}}};
  Lines passing;
  for (const std::string selector :
       {"setChargeLimit:reply:", "clearChargeLimitWithReply:", "forceDischarge:reply:",
        "setClamshellKeepAwake:reply:", "releaseLimitUntilFullThenRestoreWithReply:",
        "cancelTopUpWithReply:", "resetAllSMCKeysWithReply:"}) {
    if (!virtualmac::errorRejected(connection.interface, selector, withBytes))
      passing.push_back(selector);
  }
  EXPECT_THAT(passing, ElementsAre("setClamshellKeepAwake:reply:"));
}

}  // namespace
}  // namespace korvel::test
