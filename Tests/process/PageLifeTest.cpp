#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Tests/process/Mac.h"
#include "Tests/process/Page.h"

namespace processtests {

namespace {

using nlohmann::json;

/// Nobody listens there any more, or nobody does within the time.
bool isClosed(int port, double timeoutSeconds = 20) {
  const double deadline = clockNow() + timeoutSeconds;
  while (PageVisit::reaches("127.0.0.1", port)) {
    if (clockNow() > deadline) return false;
    pauseFor(0.02);
  }
  return true;
}

/// The command line of `up` with a page.
std::vector<std::string> upAt(int port) { return {"up", "--web=" + std::to_string(port)}; }

}  // namespace

TEST(PageLifeTest, UpPrintsTheLinkOnALineOfItsOwn) {
  const Mac mac({.up = false});
  const Result up = mac.command({"up", "--web=0"});
  ASSERT_EQ(up.status, 0) << up.err;
  const Page page(mac);
  EXPECT_TRUE(up.out.ends_with("\nhttp://" + page.host() + "/#token=" + page.token() + '\n'))
      << up.out;
  EXPECT_EQ(page.get("/api/status").status, 200);
}

TEST(PageLifeTest, ProgramsGetTheLinkToo) {
  const Mac mac({.up = false});
  const json up = json::parse(mac.command({"--json", "up", "--web=0"}).out);
  for (const char* fact : {"port", "link"})
    EXPECT_EQ(up.at("web").at(fact), mac.status().at("web").at(fact));
  EXPECT_TRUE(isAlive(up.at("web").at("pid").get<pid_t>()));
}

TEST(PageLifeTest, AMachineWithoutAPageSaysSo) {
  const Mac mac;
  EXPECT_TRUE(mac.status().at("web").is_null());
  expectSays(mac.command({"status"}), 0, {"page           none\n"});
  EXPECT_FALSE(std::filesystem::exists(mac.root() + "/page.token"));
}

// In a network that this computer is in, nobody else can reach it.
TEST(PageLifeTest, ThePageListensOnThisComputerOnly) {
  const Mac mac(withPage());
  const Page page(mac);
  EXPECT_EQ(page.get("/api/status").status, 200);
  EXPECT_FALSE(PageVisit::reaches("127.0.0.2", page.port()));
  EXPECT_TRUE(PageVisit::reaches("127.0.0.1", page.port()));
}

TEST(PageLifeTest, ThePageEndsWithItsMachineAndItsStreamsInOrder) {
  const Mac mac(withPage());
  const Page page(mac);
  PageVisit visit(page.port());
  visit.send(page.request("GET", "/api/journal"));
  ASSERT_EQ(visit.begin().status, 200);
  mac.tell({"down"});
  EXPECT_TRUE(visit.comesToItsEnd());
  EXPECT_EQ(visit.stream(), readFile(mac.root() + "/journal"));
  EXPECT_TRUE(isClosed(page.port()));
}

TEST(PageLifeTest, ThePageEndsWithAMachineThatIsKilled) {
  const Mac mac(withPage());
  const Page page(mac);
  ::kill(mac.machinePid(), SIGKILL);
  EXPECT_TRUE(isClosed(page.port()));
}

TEST(PageLifeTest, ALinkServesForTheNextMachineAtOnce) {
  Mac mac(withPage());
  const Page page(mac);
  const std::string run = page.get("/api/journal?run=none").json().value("run", "");
  for (int round = 0; round < 3; ++round) {
    PageVisit visit(page.port());
    visit.send(page.request("GET", "/api/journal"));
    ASSERT_EQ(visit.begin().status, 200);
    mac.tell({"down"});
    const Result up = mac.command(upAt(page.port()));
    ASSERT_EQ(up.status, 0) << up.err;
    EXPECT_EQ(page.get("/api/status").status, 200);
    const PageAnswer stale = page.get("/api/journal?from=10&run=" + run);
    EXPECT_EQ(stale.status, 409);
    EXPECT_NE(stale.json().value("run", run), run);
  }
}

TEST(PageLifeTest, APortThatIsTakenIsNamedAndNoMachineIsLeft) {
  const Mac first(withPage());
  const Page page(first);
  const Mac second({.up = false});
  expectSays(second.command(upAt(page.port())), 1,
             {"port " + std::to_string(page.port()) +
              " is taken; choose another with --web=PORT, or --web=0 for any that is free"});
  expectSays(second.command({"status"}), 1, {"no virtual Mac is up"});
  EXPECT_EQ(page.get("/api/status").status, 200);
}

TEST(PageLifeTest, AMachineThatIsUpIsNamedBeforeItsPort) {
  const Mac mac(withPage());
  const Page page(mac);
  expectSays(mac.command(upAt(page.port())), 1, {"a virtual Mac is already up in " + mac.root()});
  EXPECT_EQ(page.get("/api/status").status, 200);
}

TEST(PageLifeTest, WhatIsNoPortIsNamedWithThoseThatAre) {
  const Mac mac({.up = false});
  for (const char* wrong : {"65536", "-1", "x", "80x", "1.5", "99999999999999999999"})
    expectSays(
        mac.command({"up", "--web=" + std::string(wrong)}), 2,
        {"--web: \"" + std::string(wrong) + "\" is no port: a whole number from 1024 to 65535"});
  expectSays(mac.command({"status"}), 1, {"no virtual Mac is up"});
}

TEST(PageLifeTest, ThePageOfAMachineInTheForegroundEndsWithIt) {
  const Mac mac({.up = false});
  std::optional<Background> machine(
      std::in_place, "virtual-mac",
      std::vector<std::string>{"--root", mac.root(), "up", "--foreground", "--web=0"});
  const double deadline = clockNow() + 20;
  while (mac.command({"status"}).status != 0 && clockNow() < deadline) pauseFor(0.02);
  const Page page(mac);
  EXPECT_EQ(page.get("/api/status").status, 200);
  ::kill(machine->pid(), SIGINT);
  EXPECT_TRUE(isClosed(page.port()));
}

// The page is a process of its own: the machine does not wait for it.
TEST(PageLifeTest, AMachineGoesOnWithoutItsPage) {
  const Mac mac({.up = false});
  const json up = json::parse(mac.command({"--json", "up", "--web=0", "--speed", "60"}).out);
  const auto pid = up.at("web").at("pid").get<pid_t>();
  const Page page(mac);
  PageVisit visit(page.port());
  visit.send(page.request("GET", "/api/journal"));
  ASSERT_EQ(visit.begin().status, 200);
  ::kill(pid, SIGSTOP);
  mac.tell({"set", "adapter", "off"});
  EXPECT_EQ(mac.journalCount("adapter disconnected", 1), 1U);
  ::kill(pid, SIGCONT);
  EXPECT_TRUE(visit.waitFor(" mac   adapter disconnected\n"));
  ::kill(pid, SIGKILL);
  EXPECT_TRUE(isClosed(page.port()));
  mac.tell({"set", "lid", "closed"});
}

}  // namespace processtests
