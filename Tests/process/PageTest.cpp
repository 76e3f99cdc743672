#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>

#include "Tests/process/Mac.h"
#include "Tests/process/Page.h"

namespace processtests {

namespace {

using nlohmann::json;

class PageTest : public testing::Test {
 protected:
  /// The status of a request with these headers beside the token.
  [[nodiscard]] PageAnswer asked(const std::string& path, const std::string& headers) const {
    return page.send(
        Page::plain("GET", path, headers + "X-Virtual-Mac-Token: " + page.token() + "\r\n"));
  }
  [[nodiscard]] std::string host() const { return "Host: " + page.host() + "\r\n"; }

  const Mac mac{withPage()};
  const Page page{mac};
};

}  // namespace

TEST_F(PageTest, ThePageAndAllThatItNamesNeedNoToken) {
  const PageAnswer index = page.send(Page::plain("GET", "/", host()));
  EXPECT_EQ(index.status, 200);
  EXPECT_EQ(index.header("Content-Type"), "text/html; charset=utf-8");
  const std::regex named("\"(/viewer/[^\"]+)\"");
  std::set<std::string> files;
  for (std::sregex_iterator each(index.body.begin(), index.body.end(), named), end; each != end;
       ++each)
    files.insert((*each)[1]);
  EXPECT_GE(files.size(), 3U);
  for (const std::string& file : files) {
    const PageAnswer answer = page.send(Page::plain("GET", file, host()));
    EXPECT_EQ(answer.status, 200) << file;
    EXPECT_FALSE(answer.body.empty()) << file;
    const std::string type = file.ends_with(".css") ? "text/css" : "text/javascript";
    EXPECT_EQ(answer.header("Content-Type"), type + "; charset=utf-8") << file;
  }
  EXPECT_EQ(page.send(Page::plain("GET", "/viewer/none.js", host())).status, 404);
  EXPECT_EQ(page.send(Page::plain("GET", "/viewer/../index.html", host())).status, 404);
}

TEST_F(PageTest, EveryAnswerKeepsABrowserFromStoringGuessingAndFraming) {
  for (const char* path : {"/", "/viewer/viewer.css", "/api/status", "/none"}) {
    const PageAnswer answer = page.get(path);
    EXPECT_EQ(answer.header("Cache-Control"), "no-store") << path;
    EXPECT_EQ(answer.header("X-Content-Type-Options"), "nosniff") << path;
    EXPECT_EQ(answer.header("Referrer-Policy"), "no-referrer") << path;
    const std::string policy = answer.header("Content-Security-Policy");
    EXPECT_TRUE(policy.starts_with("default-src 'none'")) << path << ": " << policy;
    EXPECT_TRUE(policy.ends_with("frame-ancestors 'none'")) << path << ": " << policy;
    EXPECT_EQ(answer.header("Access-Control-Allow-Origin"), "") << path;
  }
}

TEST_F(PageTest, AMissingOrWrongTokenIsRefused) {
  const std::string wrong(page.token().size(), '0');
  for (const std::string& header : {std::string(), "X-Virtual-Mac-Token: " + wrong + "\r\n"}) {
    const PageAnswer answer = page.send(Page::plain("GET", "/api/status", host() + header));
    EXPECT_EQ(answer.status, 401);
    EXPECT_EQ(answer.json().value("ok", true), false);
    EXPECT_TRUE(answer.json().value("error", "").starts_with("the token is missing or wrong"))
        << answer.body;
  }
  EXPECT_EQ(page.get("/api/status").status, 200);
}

TEST_F(PageTest, ARequestOfAnotherPageIsRefused) {
  for (const char* origin : {"http://evil.example", "null", "http://127.0.0.1:1"}) {
    const PageAnswer answer =
        asked("/api/status", host() + "Origin: " + std::string(origin) + "\r\n");
    EXPECT_EQ(answer.status, 403) << origin;
    EXPECT_EQ(answer.json().value("error", ""),
              "the origin \"" + std::string(origin) + "\" is another page");
  }
  EXPECT_EQ(asked("/api/status", host() + "Origin: http://" + page.host() + "\r\n").status, 200);
}

// A foreign name may be made to stand for this computer.
TEST_F(PageTest, ARequestForAnotherHostIsRefused) {
  const std::string port = std::to_string(page.port());
  EXPECT_EQ(asked("/", "Host: evil.example:" + port + "\r\n").status, 403);
  EXPECT_EQ(asked("/", "Host: 127.0.0.1\r\n").status, 403);
  EXPECT_EQ(asked("/", "").status, 403);
  EXPECT_EQ(asked("/api/status", "Host: localhost:" + port + "\r\n").status, 200);
}

TEST_F(PageTest, APlaceThatIsNotThereOrAMethodThatItDoesNotTakeIsNamed) {
  const PageAnswer none = page.get("/api/none");
  EXPECT_EQ(none.status, 404);
  EXPECT_EQ(none.json().value("error", ""), "there is no /api/none");
  const PageAnswer wrong = page.post("/api/status", json::object());
  EXPECT_EQ(wrong.status, 405);
  EXPECT_EQ(wrong.header("Allow"), "GET");
  EXPECT_EQ(wrong.json().value("error", ""), "POST is not for /api/status (allowed: GET)");
}

TEST_F(PageTest, TheStatusIsThatOfTheCommand) {
  json told = page.get("/api/status").json();
  json asked = mac.status();
  for (json* each : {&told, &asked}) {
    ASSERT_TRUE(each->is_object());
    // These go on between the two questions.
    for (const char* moving : {"seconds", "uptimeSeconds", "clock", "enforcement", "batteryPercent",
                               "temperatureCelsius", "smcWrites"})
      EXPECT_EQ(each->erase(moving), 1U) << moving;
  }
  EXPECT_EQ(told, asked);
}

TEST_F(PageTest, CommandsAct) {
  EXPECT_EQ(page.machine("set", {"battery", "42"}).value("ok", false), true);
  EXPECT_NEAR(mac.status().at("batteryPercent").get<double>(), 42, 1);
  EXPECT_EQ(page.machine("fault", {"disk-full", "on"}).value("ok", false), true);
  EXPECT_EQ(mac.status().at("faults"), json::array({"disk-full"}));
  EXPECT_EQ(page.machine("speed", {"5"}).value("ok", false), true);
  EXPECT_EQ(mac.status().at("speed"), 5);
  EXPECT_EQ(page.machine("reboot").value("ok", false), true);
  EXPECT_EQ(mac.journalCount("reboot", 1), 1U);
}

TEST_F(PageTest, WhatTheMachineRefusesIsToldAsTheMachineSaysIt) {
  const json value = page.machine("set", {"battery", "200"});
  EXPECT_EQ(value.value("ok", true), false);
  EXPECT_EQ(value.value("usage", false), true);
  EXPECT_EQ(value.value("error", ""), "battery \"200\" is not allowed (allowed: 0 to 100)");
  const json command = page.machine("explode");
  EXPECT_TRUE(command.value("error", "").starts_with("command \"explode\" is unknown"));
}

// These would hold a connection to the machine, or end the page's own machine.
TEST_F(PageTest, WhatIsNotForAPageIsRefused) {
  for (const char* command : {"follow", "identify", "join", "down"}) {
    const PageAnswer answer = page.post("/api/machine", {{"command", command}});
    EXPECT_EQ(answer.status, 400);
    EXPECT_EQ(answer.json().value("error", ""), std::string(command) + " is not for a page");
  }
  EXPECT_EQ(mac.status().at("profile"), "newer-keys");
}

TEST_F(PageTest, TheVocabularyIsTheMachinesOwn) {
  const json words = page.get("/api/vocabulary").json();
  EXPECT_EQ(words.at("profile"), "newer-keys");
  EXPECT_EQ(words.at("settings").at(0), json({{"name", "battery"},
                                              {"values", json::array()},
                                              {"least", 0},
                                              {"most", 100},
                                              {"whole", false}}));
  EXPECT_EQ(words.at("deeds"), json({"sleep", "wake", "touch", "reboot", "power-loss"}));
  EXPECT_EQ(words.at("identities"),
            json::parse(mac.command({"--json", "identities"}).out).at("identities"));
  const json faults = json::parse(mac.command({"--json", "fault", "list"}).out);
  EXPECT_EQ(words.at("faults"), faults.at("faults"));
  EXPECT_NE(std::ranges::find(words.at("signals"), "KILL"), words.at("signals").end());
  EXPECT_NE(std::ranges::find(words.at("operations"),
                              json({{"word", "set-limit"}, {"argument", "percent"}})),
            words.at("operations").end());
}

TEST_F(PageTest, TheJournalIsToldFromItsHeadOnAndAsItGrows) {
  PageVisit visit(page.port());
  visit.send(page.request("GET", "/api/journal"));
  const PageAnswer head = visit.begin();
  EXPECT_EQ(head.status, 200);
  EXPECT_EQ(head.header("X-Virtual-Mac-Run").size(), 16U);
  EXPECT_TRUE(visit.waitFor("KorvelHelper starting"));
  EXPECT_TRUE(visit.stream().starts_with("# {\"journal\":1,\"run\":\"" +
                                         head.header("X-Virtual-Mac-Run") + '"'));
  mac.tell({"set", "lid", "closed"});
  EXPECT_TRUE(visit.waitFor(" mac   lid closed\n"));
  EXPECT_TRUE(readFile(mac.root() + "/journal").starts_with(visit.stream()));
}

TEST_F(PageTest, TheJournalIsToldFromAByteOn) {
  mac.tell({"set", "lid", "closed"});
  const std::string journal = readFile(mac.root() + "/journal");
  const std::size_t from = journal.find("lid closed") + std::string("lid closed\n").size();
  PageVisit visit(page.port());
  visit.send(page.request("GET", "/api/journal?from=" + std::to_string(from)));
  EXPECT_EQ(visit.begin().status, 200);
  mac.tell({"set", "lid", "open"});
  EXPECT_TRUE(visit.waitFor(" mac   lid opened\n"));
  EXPECT_EQ(visit.stream().find("lid closed"), std::string::npos);
  for (const char* wrong : {"-1", "x", "", "99999999", "18446744073709551616", "1x"})
    EXPECT_EQ(page.get("/api/journal?from=" + std::string(wrong)).status, 400) << wrong;
}

TEST_F(PageTest, ASilentJournalShowsThatItIsThere) {
  PageVisit visit(page.port());
  visit.send(page.request("GET", "/api/journal"));
  EXPECT_EQ(visit.begin().status, 200);
  // No line of a journal is empty.
  EXPECT_TRUE(visit.waitFor("\n\n", 60)) << visit.stream();
}

TEST_F(PageTest, TheJournalOfAnotherRunIsRefusedWithTheNameOfThisOne) {
  const PageAnswer answer = page.get("/api/journal?run=0123456789abcdef");
  EXPECT_EQ(answer.status, 409);
  const std::string run = answer.json().value("run", "");
  EXPECT_EQ(run, answer.header("X-Virtual-Mac-Run"));
  PageVisit visit(page.port());
  visit.send(page.request("GET", "/api/journal?run=" + run));
  EXPECT_EQ(visit.begin().status, 200);
}

TEST_F(PageTest, OneConnectionServesManyRequests) {
  PageVisit visit(page.port());
  for (int round = 0; round < 20; ++round) {
    visit.send(page.request("GET", "/api/status"));
    ASSERT_EQ(visit.answer().status, 200) << round;
  }
}

}  // namespace processtests
