#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "Tests/process/Mac.h"
#include "Tests/process/Page.h"

namespace processtests {

namespace {

using nlohmann::json;

class PageClientsTest : public testing::Test {
 protected:
  [[nodiscard]] json connect(const std::string& client, const std::string& identity = "app") const {
    return page.clients({{"do", "connect"}, {"client", client}, {"identity", identity}});
  }
  [[nodiscard]] json send(const std::string& client, const std::string& request) const {
    return page.clients({{"do", "send"}, {"client", client}, {"request", request}});
  }
  [[nodiscard]] json end(const std::string& client, const std::string& how = "disconnect") const {
    return page.clients({{"do", how}, {"client", client}});
  }
  [[nodiscard]] json list() const { return page.get("/api/clients").json().at("clients"); }
  static json named(const std::string& name, bool connected = true) {
    return {{"name", name}, {"identity", "app"}, {"connected", connected}};
  }
  static void expectRefused(const json& answer, const std::string& error) {
    EXPECT_EQ(answer, json({{"ok", false}, {"error", error}}));
  }

  const Mac mac{withPage()};
  const Page page{mac};
};

const json done = {{"ok", true}};
const json connected = {{"ok", true}, {"connected", true}};

}  // namespace

TEST_F(PageClientsTest, AnApplicationConnectsAsksAndLeaves) {
  EXPECT_EQ(list(), json::array());
  EXPECT_EQ(connect("app"), connected);
  EXPECT_EQ(list(), json::array({named("app")}));
  EXPECT_EQ(send("app", "set-limit 75"), done);
  EXPECT_EQ(mac.state().value("chargeLimit", 0), 75);
  const json state = send("app", "state");
  EXPECT_EQ(state.at("state").at("chargeLimit"), 75);
  EXPECT_EQ(send("app", "ping").at("pid"), mac.helper().value_or(0));
  EXPECT_EQ(end("app"), done);
  EXPECT_EQ(list(), json::array());
  EXPECT_EQ(mac.journalCount("client disconnected (count=0)", 1), 1U);
}

TEST_F(PageClientsTest, WhatTheHelperOrTheSessionRefusesIsTold) {
  ASSERT_EQ(connect("app"), connected);
  const json limit = send("app", "set-limit 10");
  EXPECT_EQ(limit.value("ok", true), false);
  EXPECT_EQ(limit.value("code", 0), 400);
  const json request = send("app", "dance");
  EXPECT_EQ(request.value("usage", false), true);
  EXPECT_TRUE(request.value("error", "").starts_with("request \"dance\" is unknown"))
      << request.dump();
}

TEST_F(PageClientsTest, SeveralApplicationsAreToldApart) {
  ASSERT_EQ(connect("one"), connected);
  ASSERT_EQ(connect("two"), connected);
  EXPECT_EQ(list(), json::array({named("one"), named("two")}));
  EXPECT_EQ(mac.journalCount("client connected (count=2)", 1), 1U);
  EXPECT_EQ(end("one"), done);
  EXPECT_EQ(mac.journalCount("client disconnected (count=1)", 1), 1U);
  EXPECT_EQ(send("two", "set-limit 60"), done);
}

TEST_F(PageClientsTest, AKilledApplicationIsGoneAndItsNameIsFree) {
  ASSERT_EQ(connect("app"), connected);
  EXPECT_EQ(mac.journalCount("client connected (count=1)", 1), 1U);
  EXPECT_EQ(end("app", "kill"), done);
  EXPECT_EQ(list(), json::array());
  EXPECT_EQ(mac.journalCount("client disconnected (count=0)", 1), 1U);
  EXPECT_EQ(connect("app"), connected);
}

TEST_F(PageClientsTest, AnIdentityThatTheMachineDoesNotKnowIsNamed) {
  const json answer = connect("app", "martian");
  EXPECT_EQ(answer.value("ok", true), false);
  EXPECT_TRUE(answer.value("error", "").starts_with("identity \"martian\" is unknown"))
      << answer.dump();
  EXPECT_EQ(list(), json::array());
}

TEST_F(PageClientsTest, AnIdleApplicationIsNotConnectedOnceTheHelperIsGone) {
  ASSERT_EQ(connect("app"), connected);
  EXPECT_EQ(send("app", "quit"), done);
  const json cutOff = json::array({named("app", false)});
  for (const double deadline = clockNow() + 20; list() != cutOff && clockNow() < deadline;)
    pauseFor(0.01);
  EXPECT_EQ(list(), cutOff);
  ASSERT_EQ(connect("app"), connected);
  EXPECT_EQ(list(), json::array({named("app")}));
}

// The helper cuts it off at its first message.
TEST_F(PageClientsTest, AForeignApplicationIsLostAndSaidToBe) {
  const json identities = page.get("/api/vocabulary").json().at("identities");
  ASSERT_NE(std::ranges::find(identities, "other-team"), identities.end()) << identities.dump();
  ASSERT_EQ(connect("stranger", "other-team"), connected);
  EXPECT_EQ(send("stranger", "ping").value("lost", false), true);
  ASSERT_EQ(list().size(), 1U);
  EXPECT_EQ(list().at(0).value("connected", true), false);
  EXPECT_EQ(connect("stranger"), connected);
}

TEST_F(PageClientsTest, AWishThatMakesNoSenseIsNamed) {
  ASSERT_EQ(connect("app"), connected);
  expectRefused(connect("app"), "client \"app\" is connected already");
  expectRefused(send("ap", "ping"),
                "client \"ap\" is unknown, did you mean \"app\"? (allowed: app)");
  expectRefused(end("nobody"), "client \"nobody\" is unknown (allowed: app)");
  const std::string words = " is a text of 1 to 256 bytes on one line";
  expectRefused(connect(""), "\"client\"" + words);
  expectRefused(connect("a\nb"), "\"client\"" + words);
  expectRefused(send("app", std::string(257, 'x')), "\"request\"" + words);
  expectRefused(send("app", "ping\nquit"), "\"request\"" + words);
  expectRefused(page.clients(json::object()), "\"client\"" + words);
  EXPECT_TRUE(page.clients({{"client", "app"}, {"do", "dance"}})
                  .value("error", "")
                  .starts_with("deed \"dance\" is unknown"));
  EXPECT_EQ(page.send(page.request("POST", "/api/clients", "[]")).status, 400);
  EXPECT_EQ(mac.journalCount("quit() received"), 0U);
}

TEST_F(PageClientsTest, ApplicationsEndWithTheirMachine) {
  ASSERT_EQ(connect("app"), connected);
  ASSERT_EQ(mac.journalCount("client connected (count=1)", 1), 1U);
  const auto lines = mac.journal();
  const auto line = std::ranges::find(lines, "app", &JournalLine::kind);
  ASSERT_NE(line, lines.end());
  const pid_t client = std::stoi(line->text.substr(std::string("client ").size()));
  EXPECT_TRUE(isAlive(client)) << line->text;
  mac.tell({"down"});
  const double deadline = clockNow() + 20;
  while (isAlive(client) && clockNow() < deadline) pauseFor(0.02);
  EXPECT_FALSE(isAlive(client));
}

}  // namespace processtests
