#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <memory>

#include "Tests/process/Mac.h"

// A helper that inherits a descriptor keeps that pipe or socket open without knowing it, so that a
// reader waits for its end as long as the helper lives.
namespace processtests {

namespace {

/// Counts the descriptors of a new helper at rest, after its first client has left.
int descriptorsOfAFreshHelper(const Mac& mac) {
  if (mac.helper()) {
    EXPECT_EQ(mac.app({"quit"}).status, 0);
  }
  EXPECT_TRUE(mac.becomes([](const auto& status) { return status.at("helperPid").is_null(); }));
  auto journal = mac.follow();
  EXPECT_EQ(mac.app({"ping"}).status, 0);
  EXPECT_TRUE(journal.waitFor("client disconnected (count=0)"));
  const pid_t helper = mac.helper().value_or(0);
  const auto count = [helper] {
    const auto facts = factsOf(helper);
    return facts ? facts->descriptors : -1;
  };
  int seen = count();
  for (int still = 0; still < 10; ++still) {
    pauseFor(0.02);
    const int now = count();
    if (now != seen) still = 0;
    seen = now;
  }
  return seen;
}

/// Opens many: a few inherited descriptors could be replaced by those that the helper is given.
std::vector<std::unique_ptr<LineSocket>> followersOf(const Mac& mac) {
  std::vector<std::unique_ptr<LineSocket>> followers;
  for (int each = 0; each < 10; ++each) {
    followers.push_back(std::make_unique<LineSocket>(mac.controlPath()));
    followers.back()->send(R"({"command":"follow"})");
    EXPECT_TRUE(followers.back()->receive(20));
  }
  return followers;
}

}  // namespace

TEST(DescriptorsTest, AHelperHasAsManyHoweverManyClientsItsMachineHas) {
  const Mac mac({.speed = 60});
  const int alone = descriptorsOfAFreshHelper(mac);
  ASSERT_GT(alone, 4);
  const auto followers = followersOf(mac);
  EXPECT_EQ(descriptorsOfAFreshHelper(mac), alone);
}

TEST(DescriptorsTest, FollowersHearOfTheEndOfAMachineThatIsKilledWhileItsHelperLives) {
  const Mac mac({.helper = "exec sleep 600"});
  const auto followers = followersOf(mac);
  mac.tell({"reboot"});  // Its helper starts beside them.
  EXPECT_EQ(run("korvel-app", {"--root", mac.root(), "--timeout", "0.1", "ping"}).status, 1);
  const auto helper = mac.helper();
  ASSERT_TRUE(helper);
  ASSERT_EQ(::kill(mac.machinePid(), SIGKILL), 0);
  const double began = clockNow();
  for (const auto& follower : followers) {
    while (clockNow() - began < 9 && follower->receive(9)) {
    }
  }
  EXPECT_LT(clockNow() - began, 9) << "nobody told one of them";
  EXPECT_TRUE(isAlive(*helper)) << "the point is that it lives";
  EXPECT_EQ(::kill(*helper, SIGKILL), 0);
  while (isAlive(mac.machinePid()) && clockNow() - began < 20) pauseFor(0.01);
}

TEST(DescriptorsTest, AMachineKeepsNothingOfTheProgramThatStartedIt) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const Mac mac;
  ::close(ends[1]);
  pollfd end{.fd = ends[0], .events = POLLIN, .revents = 0};
  EXPECT_EQ(::poll(&end, 1, 5000), 1) << "the machine holds the pipe open";
  EXPECT_TRUE(mac.helper()) << "nor does its helper, which runs";
  ::close(ends[0]);
}

}  // namespace processtests
