#include <atomic>
#include <thread>
#include <utility>

#include "KorvelHelperProtocol.h"
#include "Platform/Dispatch.h"
#include "Platform/WallClock.h"
#include "Platform/XPCListener.h"
#include "SeamContract.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {
namespace {

namespace selectors = korvel::KorvelHelperSelector;

constexpr const char* appOnly = R"(anchor apple generic and identifier "com.korvel.app" and )"
                                R"(certificate leaf[subject.OU] = "ABCDE12345" and )"
                                R"(certificate leaf[field.1.2.840.113635.100.6.1.13] exists)";

/// Notes some of the calls, and gives each a fixed reply.
class Recorder final : public korvel::KorvelHelperProtocol {
 public:
  Recorder(korvel::Platform& seam, Notes& words) : platform(seam), notes(words) {}

  void ping(korvel::PidReply reply) override {
    notes.add("ping");
    caller = platform.xpc.currentConnectionPid().value_or(-1);
    reply(4711);
  }
  void capabilities(korvel::DataReply reply) override { reply("{\"caps\":1}"); }
  void setChargeLimit(std::uint8_t limit, korvel::Reply reply) override {
    notes.add("limit" + std::to_string(limit));
    if (limit == 0) {
      reply(false, korvel::ErrorObject{
                       "Domain",
                       400,
                       {{korvel::localizedDescriptionKey, "zero — too low"}, {"smcResult", 134}}});
    } else {
      reply(true, std::nullopt);
    }
  }
  void clearChargeLimit(korvel::Reply reply) override { reply(false, std::nullopt); }
  void forceDischarge(bool enable, korvel::Reply reply) override {
    notes.add(enable ? "on" : "off");
    reply(true, std::nullopt);
  }
  void setClamshellKeepAwake(bool, korvel::Reply reply) override { reply(true, std::nullopt); }
  void releaseLimitUntilFullThenRestore(korvel::Reply reply) override { reply(true, std::nullopt); }
  void cancelTopUp(korvel::Reply reply) override { reply(true, std::nullopt); }
  void getState(korvel::DataReply reply) override { reply(std::string(100'000, 'x')); }
  void resetAllSMCKeys(korvel::Reply reply) override { reply(true, std::nullopt); }
  void quit() override { notes.add("quit"); }

  std::atomic<std::int32_t> caller = 0;

 private:
  korvel::Platform& platform;
  Notes& notes;
};

class Delegate final : public korvel::XPCListenerDelegate {
 public:
  Delegate(std::shared_ptr<Recorder> object, Notes& words)
      : exported(std::move(object)), notes(words) {}

  bool shouldAcceptNewConnection(korvel::XPCConnection& connection) override {
    korvel::XPCInterface interface = korvel::makeHelperInterface();
    korvel::applyTypedReplyClasses(interface);
    interface.replyClasses.insert(interface.replyClasses.end(), laterSettings.begin(),
                                  laterSettings.end());
    connection.setExportedInterface(interface);
    connection.setExportedObject(exported);
    if (!accepts) return false;
    parsed = connection.setCodeSigningRequirement(requirement);
    // The notes outlive this delegate, and a connection may outlive it too.
    connection.setInvalidationHandler([&words = notes, who = handlerThread, act = inHandler] {
      who->store(std::this_thread::get_id());
      if (act) act();
      words.add("invalidated");
    });
    connection.setInterruptionHandler([&words = notes] { words.add("interrupted"); });
    if (notesResume) notes.add("resuming");
    connection.resume();
    if (notesResume) notes.add("resumed");
    acceptingThread = std::this_thread::get_id();
    if (onResumed) onResumed();
    return !refusesAtLast;
  }

  std::atomic<bool> accepts = true;
  std::atomic<bool> parsed = false;
  std::string requirement = appOnly;
  std::vector<korvel::ReplyClassSetting> laterSettings;  ///< Made after the helper's own.
  bool notesResume = false;
  bool refusesAtLast = false;       ///< Refuses a connection after resuming it.
  std::function<void()> onResumed;  ///< Runs before the acceptance is complete.
  std::function<void()> inHandler;  ///< Runs in the invalidation handler, before it is noted.
  std::atomic<std::thread::id> acceptingThread;
  std::shared_ptr<std::atomic<std::thread::id>> handlerThread =
      std::make_shared<std::atomic<std::thread::id>>();

 private:
  std::shared_ptr<Recorder> exported;
  Notes& notes;
};

/// Publishes the process's service.
struct Service {
  Service(korvel::Platform& platform, Notes& notes)
      : recorder(std::make_shared<Recorder>(platform, notes)),
        delegate(std::make_shared<Delegate>(recorder, notes)),
        listener(platform.xpc.makeListener(korvel::KorvelHelperMachServiceName)) {
    listener->setDelegate(delegate);
  }
  std::shared_ptr<Recorder> recorder;
  std::shared_ptr<Delegate> delegate;
  std::unique_ptr<korvel::XPCListener> listener;
};

bool finished(SeamRig& rig, const AppCallRef& call) {
  return rig.until([&] { return call->over(); }, 5);
}

}  // namespace

TEST_P(XPCContract, RepliesOfEveryKindArrive) {
  Service service(platform(), notes);
  service.listener->resume();
  const auto client = rig->connect("app");
  const AppCallRef ping = client->call(selectors::ping, 0);
  const AppCallRef capabilities = client->call(selectors::capabilities, 0);
  const AppCallRef state = client->call(selectors::getState, 0);
  const AppCallRef good = client->call(selectors::setChargeLimit, 80);
  const AppCallRef bad = client->call(selectors::setChargeLimit, 0);
  const AppCallRef gone = client->call(selectors::clearChargeLimit, 0);
  ASSERT_TRUE(finished(*rig, gone));
  ASSERT_TRUE(rig->until([&] { return bad->over() && good->over() && state->over(); }, 5));
  EXPECT_EQ(ping->pid, 4711U);
  EXPECT_EQ(service.recorder->caller, client->pid());
  EXPECT_EQ(capabilities->data, "{\"caps\":1}");
  EXPECT_EQ(state->data.size(), 100'000U);
  EXPECT_TRUE(good->success);
  EXPECT_FALSE(good->error);
  EXPECT_FALSE(bad->success);
  ASSERT_TRUE(bad->error);
  EXPECT_EQ(bad->error->code, 400);
  EXPECT_EQ(bad->error->localizedDescription(), "zero — too low");
  EXPECT_EQ(bad->error->userInfo.at("smcResult").integer(), 134);
  EXPECT_FALSE(gone->success);
  EXPECT_FALSE(gone->error);
}

TEST_P(XPCContract, ARepliedClassThatTheExportedInterfaceDoesNotNameIsHeldBack) {
  Service service(platform(), notes);
  service.delegate->laterSettings = {{selectors::getState, 0, {korvel::ReplyClass::String}},
                                     {selectors::setChargeLimit, 1, {korvel::ReplyClass::Data}}};
  service.listener->resume();
  for (const auto& [selector, argument] :
       {std::pair{selectors::getState, 0}, std::pair{selectors::setChargeLimit, 0}}) {
    const auto client = rig->connect("app");
    const AppCallRef call = client->call(selector, static_cast<std::uint8_t>(argument));
    ASSERT_TRUE(finished(*rig, call));
    EXPECT_TRUE(call->failed) << selector;
  }
  const auto client = rig->connect("app");
  const AppCallRef capabilities = client->call(selectors::capabilities, 0);
  ASSERT_TRUE(finished(*rig, capabilities));
  EXPECT_EQ(capabilities->data, "{\"caps\":1}") << "the others are as they were";
}

TEST_P(XPCContract, MessagesOfAConnectionAreDeliveredInOrder) {
  Service service(platform(), notes);
  service.listener->resume();
  const auto client = rig->connect("app");
  client->call(selectors::setChargeLimit, 21);
  client->call(selectors::forceDischarge, 1);
  client->call(selectors::forceDischarge, 0);
  client->call(selectors::quit, 0);
  EXPECT_TRUE(untilNoted("limit21 on off quit "));
}

TEST_P(XPCContract, AConnectionWaitsUntilTheListenerIsResumed) {
  Service service(platform(), notes);
  const auto client = rig->connect("app");
  const AppCallRef call = client->call(selectors::ping, 0);
  rig->pass(0.2);
  EXPECT_FALSE(call->over());
  service.listener->resume();
  EXPECT_TRUE(finished(*rig, call));
  EXPECT_TRUE(call->answered);
}

TEST_P(XPCContract, ARefusedConnectionIsDropped) {
  Service service(platform(), notes);
  service.delegate->accepts = false;
  service.listener->resume();
  const auto client = rig->connect("app");
  const AppCallRef call = client->call(selectors::ping, 0);
  ASSERT_TRUE(finished(*rig, call));
  EXPECT_TRUE(call->failed);
  EXPECT_EQ(notes.text(), "");
}

TEST_P(XPCContract, AConnectionThatIsRefusedWhenItIsResumedIsDroppedToo) {
  Service service(platform(), notes);
  service.delegate->refusesAtLast = true;
  service.listener->resume();
  const auto client = rig->connect("app");
  ASSERT_TRUE(rig->until([&] { return service.delegate->parsed.load(); }, 5));
  rig->pass(0.1);
  const AppCallRef call = client->call(selectors::ping, 0);
  ASSERT_TRUE(finished(*rig, call));
  EXPECT_TRUE(call->failed);
}

TEST_P(XPCContract, APeerThatFailsTheRequirementIsCutOffUndelivered) {
  Service service(platform(), notes);
  service.listener->resume();
  const auto client = rig->connect("other-identifier");
  const AppCallRef call = client->call(selectors::ping, 0);
  ASSERT_TRUE(finished(*rig, call));
  EXPECT_TRUE(call->failed);
  EXPECT_TRUE(service.delegate->parsed);
  EXPECT_TRUE(untilNoted("invalidated "));
}

TEST_P(XPCContract, ARequirementThatDoesNotParseIsSaidToBeWrong) {
  Service service(platform(), notes);
  service.delegate->requirement = "identifier \"unfinished";
  service.delegate->parsed = true;
  service.listener->resume();
  const auto client = rig->connect("app");
  client->call(selectors::ping, 0);
  EXPECT_TRUE(rig->until([&] { return !service.delegate->parsed; }, 5));
}

TEST_P(XPCContract, AClientThatGoesInvalidatesItsConnectionOnce) {
  Service service(platform(), notes);
  service.listener->resume();
  const auto client = rig->connect("app");
  const AppCallRef call = client->call(selectors::ping, 0);
  ASSERT_TRUE(finished(*rig, call));
  client->disconnect();
  EXPECT_TRUE(untilNoted("ping invalidated "));
  rig->pass(0.2);
  EXPECT_EQ(notes.text(), "ping invalidated ");
}

TEST_P(XPCContract, AnEndIsToldOnAnotherThreadWhileTheConnectionIsAccepted) {
  Service service(platform(), notes);
  rig->machine([](Machine& mac) { mac.setLatencySeconds(SeamCall::clockNow, 0.5); });
  service.delegate->onResumed = [this] {
    platform().clock.now();
    notes.add("accepted");
  };
  service.listener->resume();
  rig->connect("app")->disconnect();
  EXPECT_TRUE(untilNoted("invalidated accepted "));
}

TEST_P(XPCContract, AConnectionCanEndAtItsHandlerInResumeAndAfterIt) {
  Service service(platform(), notes);
  service.delegate->notesResume = true;
  rig->machine([](Machine& mac) { mac.setLatencySeconds(SeamCall::clockNow, 0.2); });
  service.delegate->inHandler = [this] { platform().clock.now(); };
  service.listener->resume();
  std::string told;
  for (const auto& [moment, words] :
       {std::pair{ConnectionBreak::AtHandler, "invalidated resuming resumed "},
        {ConnectionBreak::InResume, "resuming invalidated resumed "}}) {
    rig->machine([at = moment](Machine& mac) { mac.connectionsBreak = at; });
    const auto client = rig->connect("app");
    EXPECT_TRUE(untilNoted(told += words)) << notes.text();
    EXPECT_NE(service.delegate->acceptingThread.load(), service.delegate->handlerThread->load());
    const AppCallRef call = client->call(selectors::ping, 0);
    EXPECT_TRUE(finished(*rig, call));
    EXPECT_TRUE(call->failed);
  }
  rig->machine([](Machine& mac) { mac.connectionsBreak = ConnectionBreak::AfterResume; });
  const auto client = rig->connect("app");
  const auto noted = [&](const char* order) { return notes.text() == told + order; };
  const auto inEitherOrder = [&] {
    return noted("resuming resumed invalidated ") || noted("resuming invalidated resumed ");
  };
  EXPECT_TRUE(rig->until(inEitherOrder, 5)) << notes.text();
}

TEST_P(XPCContract, OutsideACallThereIsNoCurrentConnection) {
  Service service(platform(), notes);
  service.listener->resume();
  const auto client = rig->connect("app");
  ASSERT_TRUE(finished(*rig, client->call(selectors::ping, 0)));
  std::optional<std::int32_t> onMain;
  rig->onMain([&] { onMain = platform().xpc.currentConnectionPid(); });
  EXPECT_FALSE(onMain);
}

}  // namespace virtualmac
