#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Tests/process/Mac.h"

namespace processtests {

namespace {

using nlohmann::json;

const json connectedEvent{{"event", "connected"}};
const json disconnectedEvent{{"event", "disconnected"},
                             {"error", "the helper ended the connection"}};
const json done{{"ok", true}};
constexpr const char* connectedLine = "client connected (count=1)";

/// `korvel-app session` beside a machine.
class Session {
 public:
  explicit Session(const Mac& mac, std::vector<std::string> words = {},
                   const std::string& timeoutSeconds = "20")
      : program("korvel-app", wordsFor(mac, std::move(words), timeoutSeconds)) {}

  /// The next line; null when none comes.
  json line(double timeoutSeconds = 30) {
    const auto text = program.hear(timeoutSeconds * slowness());
    return text ? json::parse(*text) : json();
  }
  json ask(const std::string& request) {
    program.say(request);
    return line();
  }
  void say(const std::string& request) const { program.say(request); }
  int finish() { return program.finish(); }

 private:
  static std::vector<std::string> wordsFor(const Mac& mac, std::vector<std::string> words,
                                           const std::string& timeoutSeconds) {
    words.insert(words.begin(), {"--root", mac.root(), "--timeout", timeoutSeconds, "session"});
    return words;
  }

  Conversation program;
};

}  // namespace

TEST(SessionTest, AnswersEachRequestOverOneConnection) {
  const Mac mac;
  Session session(mac);
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("ping"), json({{"ok", true}, {"pid", mac.helper().value_or(0)}}));
  EXPECT_EQ(session.ask("set-limit 80"), done);
  EXPECT_EQ(session.ask("keep-awake on\r"), done);
  EXPECT_EQ(mac.journalCount("client connected (count=", 1), 1U);
  EXPECT_EQ(session.finish(), 0);
}

TEST(SessionTest, AMethodThatTheHelperLacksEndsTheConnectionAndNothingElse) {
  const Mac mac;
  const auto helper = mac.helper();
  Session session(mac);
  EXPECT_EQ(session.line(), connectedEvent);
  session.say("call setSchedule");
  EXPECT_EQ(session.line(), disconnectedEvent);
  EXPECT_EQ(session.line().value("lost", false), true);
  EXPECT_EQ(session.ask("call pingWithReply:").value("usage", false), true);
  EXPECT_EQ(session.ask("call").value("usage", false), true);
  session.say("set-limit 80");
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.line(), done);
  EXPECT_EQ(mac.helper(), helper);
  EXPECT_EQ(session.finish(), 0);
}

TEST(SessionTest, TellsTheFieldsOfRecordAndCapabilitiesAsJSON) {
  const Mac mac;
  Session session(mac);
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("set-limit 77"), done);
  const json state = session.ask("state");
  EXPECT_EQ(state.at("ok"), true);
  EXPECT_EQ(state.at("state").at("chargeLimit"), 77);
  EXPECT_TRUE(state.at("state").at("lastWriteAt").is_number());
  EXPECT_FALSE(state.at("state").contains("lastDischargeAbortReason"));
  EXPECT_EQ(session.ask("capabilities"), json({{"ok", true},
                                               {"capabilities",
                                                {{"tahoeCharging", true},
                                                 {"preTahoeCharging", false},
                                                 {"tahoeDischarge", true},
                                                 {"preTahoeDischarge", false},
                                                 {"nativeCharging", false}}}}));
}

TEST(SessionTest, ARefusalHasItsCodeAndText) {
  const Mac mac;
  Session session(mac);
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("set-limit 19"),
            json({{"ok", false},
                  {"code", 400},
                  {"error", "Charge limit must be between 20 and 100 (got 19)."}}));
}

TEST(SessionTest, AWrongRequestIsToldWithTheAllowedOnesAndCostsNothing) {
  const Mac mac;
  Session session(mac);
  EXPECT_EQ(session.line(), connectedEvent);
  const json misspelt = session.ask("set-limmit 80");
  EXPECT_EQ(misspelt.at("ok"), false);
  EXPECT_EQ(misspelt.at("usage"), true);
  EXPECT_TRUE(misspelt.at("error").get<std::string>().contains("did you mean \"set-limit\"?"));
  EXPECT_TRUE(session.ask("discharge maybe").at("error").get<std::string>().contains("on, off"));
  EXPECT_EQ(session.ask("state").at("ok"), true);
}

TEST(SessionTest, TheHelpersEndIsAnEventOfItsOwn) {
  const Mac mac({.speed = fast});
  Session session(mac);
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("set-limit 80"), done);
  mac.tell({"kill"});
  EXPECT_EQ(session.line(), disconnectedEvent) << "nothing was asked";
}

TEST(SessionTest, TheNextRequestConnectsAgain) {
  const Mac mac({.speed = fast});
  Session session(mac);
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("set-limit 80"), done);
  ASSERT_EQ(mac.journalCount(connectedLine, 1), 1U);
  const pid_t before = mac.helper().value_or(0);
  mac.tell({"kill"});
  EXPECT_EQ(session.line(), disconnectedEvent);
  ASSERT_TRUE(mac.becomes([](const auto& status) { return status.at("helperStarts") == 2; }));
  EXPECT_EQ(mac.journalCount(connectedLine), 1U) << "it has not come back by itself";
  EXPECT_EQ(session.ask("state"), connectedEvent);
  EXPECT_EQ(session.line().at("state").at("chargeLimit"), 80);
  EXPECT_EQ(mac.journalCount(connectedLine, 2), 2U);
  const json ping = session.ask("ping");
  EXPECT_NE(ping.at("pid"), before);
}

TEST(SessionTest, ComesBackAtOnceWhenToldToSo) {
  const Mac mac({.speed = fast});
  Session session(mac, {"--reconnect", "at-once"});
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("set-limit 80"), done);
  mac.tell({"kill"});
  EXPECT_EQ(session.line(), disconnectedEvent);
  EXPECT_EQ(session.line(), connectedEvent) << "nothing was asked";
  EXPECT_EQ(mac.journalCount("client connect — arming polling loop at limit=80", 1), 1U);
}

TEST(SessionTest, NeverComesBackWhenToldSo) {
  const Mac mac({.speed = fast});
  Session session(mac, {"--reconnect", "never"});
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("set-limit 80"), done) << "the helper has taken the connection";
  mac.tell({"kill"});
  EXPECT_EQ(session.line(), disconnectedEvent);
  EXPECT_EQ(session.ask("state"),
            json({{"ok", false}, {"lost", true}, {"error", "not connected any more"}}));
  EXPECT_EQ(session.finish(), 0);
}

// The hardware does not answer, and so neither does the helper.
TEST(SessionTest, ARequestThatTheEndCostsIsLostAndTheEndIsToldFirst) {
  const Mac mac;
  Session session(mac);
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("set-limit 80"), done);
  mac.tell({"fault", "smc-latency", "100000", "on"});
  session.say("clear-limit");
  ASSERT_EQ(mac.journalCount("clearChargeLimit pid=", 1), 1U);
  mac.tell({"kill"});
  EXPECT_EQ(session.line(), disconnectedEvent);
  EXPECT_EQ(session.line(),
            json({{"ok", false}, {"lost", true}, {"error", "the helper ended the connection"}}));
}

TEST(SessionTest, QuitEndsTheConnectionAndSucceeds) {
  const Mac mac;
  Session session(mac);
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("quit"), disconnectedEvent);
  EXPECT_EQ(session.line(), done);
}

TEST(SessionTest, AStrangerIsCutOffAtItsFirstMessage) {
  const Mac mac;
  Session session(mac, {"--as", "other-team"});
  EXPECT_EQ(session.line(), connectedEvent);
  EXPECT_EQ(session.ask("state"), disconnectedEvent);
  EXPECT_EQ(session.line().at("lost"), true);
}

// The hardware takes over three real seconds, and the session waits for two.
TEST(SessionTest, AReplyThatComesTooLateIsNotTakenForAnother) {
  const Mac mac({.speed = fast});
  Session session(mac, {}, "2");
  EXPECT_EQ(session.line(), connectedEvent);
  const auto pinged = [&session] {
    json answer = session.ask("ping");
    while (answer.value("lost", false)) answer = session.ask("ping");
    return answer;
  };
  const json ping = pinged();
  EXPECT_EQ(ping, json({{"ok", true}, {"pid", mac.helper().value_or(0)}}));
  mac.tell({"fault", "smc-latency", "200", "on"});
  EXPECT_EQ(session.ask("clear-limit"),
            json({{"ok", false}, {"lost", true}, {"error", "no reply in time"}}));
  mac.tell({"fault", "smc-latency", "off"});
  EXPECT_EQ(mac.journalCount("clearChargeLimit ok", 1), 1U);
  EXPECT_EQ(pinged(), ping);
}

TEST(SessionTest, WithoutAMachineItSaysSoAndFails) {
  const Mac mac({.up = false});
  Session session(mac);
  const json error = session.line();
  EXPECT_EQ(error.at("ok"), false);
  EXPECT_TRUE(error.contains("error"));
  EXPECT_EQ(session.finish(), 1);
}

TEST(SessionTest, AnUnknownIdentityIsNamed) {
  const Mac mac;
  Session session(mac, {"--as", "nobody"});
  EXPECT_TRUE(session.line().at("error").get<std::string>().contains("nobody"));
  EXPECT_EQ(session.finish(), 2);
}

}  // namespace processtests
