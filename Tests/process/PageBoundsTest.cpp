#include <gtest/gtest.h>

#include <fstream>
#include <list>
#include <nlohmann/json.hpp>
#include <string>

#include "Tests/process/Mac.h"
#include "Tests/process/Page.h"

// Nothing that a browser sends, or does not read, makes the page grow or its machine wait.
namespace processtests {

namespace {

using nlohmann::json;

constexpr std::size_t mostStreams = 16;
constexpr std::size_t mostConnections = 64;
constexpr std::size_t mostClients = 16;

class PageBoundsTest : public testing::Test {
 protected:
  void expectServed() const { EXPECT_EQ(page.get("/api/status").status, 200); }

  const Mac mac{withPage()};
  const Page page{mac};
};

}  // namespace

TEST_F(PageBoundsTest, ABodyThatIsTooLongIsRefusedUnread) {
  const std::string headers =
      "Host: " + page.host() + "\r\nX-Virtual-Mac-Token: " + page.token() + "\r\n";
  PageVisit visit(page.port());
  visit.send("POST /api/machine HTTP/1.1\r\n" + headers + "Content-Length: 1000000000\r\n\r\n{");
  const PageAnswer answer = visit.answer();
  EXPECT_EQ(answer.status, 413);
  EXPECT_EQ(answer.json().value("error", ""), "a body has more than 65536 bytes");
  EXPECT_TRUE(visit.isCutOff());
  const std::string filler(70'000, ' ');
  EXPECT_EQ(page.send(page.request("POST", "/api/machine", filler)).status, 413);
  expectServed();
}

// Its end would be nowhere.
TEST_F(PageBoundsTest, ABodyWithoutALengthIsRefused) {
  const std::string headers =
      "Host: " + page.host() + "\r\nX-Virtual-Mac-Token: " + page.token() + "\r\n";
  PageVisit visit(page.port());
  visit.send("POST /api/machine HTTP/1.1\r\n" + headers +
             "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n");
  EXPECT_EQ(visit.answer().status, 400);
  EXPECT_TRUE(visit.isCutOff());
  expectServed();
}

TEST_F(PageBoundsTest, HeadersThatDoNotEndAreNotReadToTheirEnd) {
  for (const std::string& line : {std::string("X: y\r\n"), std::string(4096, 'x')}) {
    PageVisit visit(page.port());
    visit.send("GET / HTTP/1.1\r\n");
    std::size_t sent = 0;
    while (sent < 50'000'000 && visit.send(line)) sent += line.size();
    EXPECT_LT(sent, 50'000'000U);
  }
  expectServed();
}

TEST_F(PageBoundsTest, WhatIsNoRequestIsRefused) {
  for (const char* bytes : {"\r\n\r\n", "GET\r\n\r\n", "GET / HTTP/9.9\r\n\r\n",
                            "\x16\x03\x01\r\n\r\n", "FETCH / HTTP/1.1\r\n\r\n"}) {
    PageVisit visit(page.port());
    visit.send(bytes);
    const int status = visit.answer().status;
    EXPECT_TRUE(status == 0 || status >= 400) << bytes << ": " << status;
  }
  expectServed();
}

TEST_F(PageBoundsTest, ABodyThatIsNoObjectIsRefused) {
  const std::string nested = std::string(20'000, '[') + std::string(20'000, ']');
  for (const std::string& body : {std::string(), std::string("7"), std::string("{"),
                                  std::string("{\"command\":\"\xff\"}"), nested}) {
    for (const char* path : {"/api/machine", "/api/clients"}) {
      const PageAnswer answer = page.send(page.request("POST", path, body));
      EXPECT_EQ(answer.status, 400) << path << ' ' << body.substr(0, 40);
      EXPECT_TRUE(answer.json().value("error", "").starts_with("the body is a JSON object"));
    }
  }
  EXPECT_EQ(page.post("/api/machine", {{"command", 7}}).json().value("ok", true), false);
  expectServed();
}

TEST_F(PageBoundsTest, SoManyPagesFollowAndNoMore) {
  std::list<PageVisit> followers;
  for (std::size_t count = 0; count < mostStreams; ++count) {
    followers.emplace_back(page.port());
    followers.back().send(page.request("GET", "/api/journal"));
    ASSERT_EQ(followers.back().begin().status, 200) << count;
  }
  const PageAnswer refused = page.get("/api/journal");
  EXPECT_EQ(refused.status, 503);
  EXPECT_EQ(refused.json().value("error", ""),
            "16 pages follow this machine already, and no more can");
  mac.tell({"set", "lid", "closed"});
  for (PageVisit& each : followers) EXPECT_TRUE(each.waitFor(" mac   lid closed\n"));
  // One that leaves makes room, once the page has noticed.
  followers.pop_back();
  const double deadline = clockNow() + 20;
  int status = 0;
  while (status != 200 && clockNow() < deadline) {
    PageVisit next(page.port());
    next.send(page.request("GET", "/api/journal"));
    status = next.begin().status;
  }
  EXPECT_EQ(status, 200);
}

TEST_F(PageBoundsTest, SoManyConnectionsAreServedAndNoMore) {
  std::list<PageVisit> visits;
  for (std::size_t count = 0; count < mostConnections; ++count) visits.emplace_back(page.port());
  for (PageVisit& each : visits) each.send("GET");
  PageVisit beyond(page.port());
  EXPECT_TRUE(beyond.isCutOff());
  visits.clear();
  const double deadline = clockNow() + 20;
  while (page.get("/api/status").status != 200 && clockNow() < deadline) pauseFor(0.05);
  expectServed();
}

TEST_F(PageBoundsTest, ARequestThatDoesNotComeToItsEndIsGivenUp) {
  PageVisit visit(page.port());
  visit.send("GET / HTTP/1.1\r\nHost: ");
  EXPECT_TRUE(visit.isCutOff(60));
}

TEST_F(PageBoundsTest, SoManyApplicationsAreStartedAndNoMore) {
  for (std::size_t count = 0; count <= mostClients; ++count) {
    const json wish = {
        {"do", "connect"}, {"client", "app" + std::to_string(count)}, {"identity", "app"}};
    const json answer = page.clients(wish);
    EXPECT_EQ(answer.value("ok", false), count < mostClients) << answer.dump();
    if (count == mostClients) {
      EXPECT_EQ(answer.value("error", ""), "a page has at most 16 clients");
    }
  }
}

// The journal is read from its file, so a long one is as good as one that has grown.
TEST_F(PageBoundsTest, AStreamThatIsNotReadIsLetGoAndDelaysNobody) {
  std::string filler;
  while (filler.size() < 8'000'000) filler += "0.500 mac   filler of a journal that is long\n";
  {
    std::ofstream journal(mac.root() + "/journal", std::ios::app | std::ios::binary);
    journal << filler;
  }
  PageVisit silent(page.port(), 4096);
  silent.send(page.request("GET", "/api/journal"));
  ASSERT_EQ(silent.begin().status, 200);
  PageVisit reader(page.port());
  reader.send(page.request("GET", "/api/journal"));
  ASSERT_EQ(reader.begin().status, 200);
  mac.tell({"set", "lid", "closed"});
  EXPECT_TRUE(reader.waitFor(" mac   lid closed\n"));
  const double begun = clockNow();
  mac.tell({"set", "lid", "open"});
  expectServed();
  EXPECT_LT(clockNow() - begun, 10);
  EXPECT_TRUE(silent.isReset(60));
}

}  // namespace processtests
