#include <gtest/gtest.h>

#include <filesystem>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

/// A machine whose journal is recorded while it runs.
class RecordTest : public testing::Test {
 protected:
  RecordTest() { EXPECT_EQ(mac.journalCount("HelperImpl boot", 1), 1U); }

  [[nodiscard]] std::string story() const { return mac.root() + "/story.yaml"; }

  /// Expects a recording, and that the story says these words and holds.
  void expectStory(int status, const std::vector<std::string>& words,
                   const std::string& error = "") {
    const Result recorded = mac.command({"record", story()});
    EXPECT_EQ(recorded.status, status) << recorded.err;
    EXPECT_NE(recorded.err.find(error), std::string::npos) << recorded.err;
    const std::string text = readFile(story());
    for (const std::string& word : words)
      EXPECT_NE(text.find(word), std::string::npos) << word << " is not in\n" << text;
    expectSays(run("virtual-mac", {"run", story()}), 0, {"passed"});
  }

  // Slow, because a helper that a busy computer keeps waiting is late in virtual time.
  Mac mac{{.speed = 4}};
};

}  // namespace

TEST_F(RecordTest, AMachineThatRunsIsRecordedAndTheStoryHolds) {
  mac.tell({"set", "battery", "85"});
  EXPECT_EQ(mac.app({"set-limit", "80"}).status, 0);
  EXPECT_EQ(mac.app({"set-limit", "10"}).status, 1);
  mac.tell({"speed", "5"});
  mac.tell({"fault", "smc-silent-refusal", "CHTE", "on"});
  mac.tell({"kill"});
  EXPECT_EQ(mac.journalCount("HelperImpl boot", 2), 2U);
  mac.tell({"set", "lid", "closed"});
  expectStory(0, {"profile: newer-keys", "restart-after-crash: yes", "battery 85", "connect",
                  "set-limit 80", "set-limit 10", "reply: failed 400", "disconnect",
                  "fault smc-silent-refusal CHTE on", "kill", "lid closed"});
}

TEST_F(RecordTest, AnotherProgramIsConnectedUnderItsName) {
  EXPECT_NE(mac.app({"--as", "other-team", "set-limit", "80"}).status, 0);
  ASSERT_EQ(mac.journalCount("does not satisfy", 1), 1U);
  expectStory(0, {"connect other-team as other-team", "ping by other-team", "reply: lost"});
}

TEST_F(RecordTest, AClientThatTheMachineDoesNotKnowIsNamed) {
  const RawClient stranger(mac, std::nullopt);
  ASSERT_EQ(mac.journalCount("client connected (count=1)", 1), 1U);
  mac.tell({"set", "lid", "closed"});
  expectStory(1, {"lid closed"}, "came past the machine: nobody knows its program");
}

TEST_F(RecordTest, AFileThatWasChangedFromOutsideIsNamed) {
  ASSERT_EQ(mac.journalCount("state.json created", 1), 1U);
  writeFile(mac.stateFile(), "{}");
  mac.tell({"kill"});
  ASSERT_EQ(mac.journalCount("state.json changed by another program", 1), 1U);
  EXPECT_EQ(mac.journalCount("HelperImpl boot", 2), 2U);
  const Result recorded = mac.command({"record"});
  EXPECT_EQ(recorded.status, 1);
  EXPECT_NE(recorded.err.find("a story cannot say this: state.json changed by another program"),
            std::string::npos)
      << recorded.err;
  EXPECT_NE(recorded.out.find("kill"), std::string::npos) << recorded.out;
}

TEST_F(RecordTest, AHelperThatIsStoppedIsNamed) {
  mac.tell({"kill", "STOP"});
  mac.tell({"kill", "CONT"});
  mac.tell({"set", "lid", "closed"});
  expectStory(1, {"lid closed"}, "signal 19 to the helper: a story has KILL, TERM, INT and ABRT");
}

TEST_F(RecordTest, ARebootIsOneActionAndTheNextRunFindsTheFile) {
  EXPECT_EQ(mac.app({"set-limit", "70"}).status, 0);
  mac.tell({"reboot"});
  EXPECT_EQ(mac.journalCount("HelperImpl boot", 2), 2U);
  expectStory(0, {"set-limit 70", "reboot"});
  mac.tell({"down"});
  mac.tell({"up", "--speed", "4"});
  EXPECT_EQ(mac.journalCount("HelperImpl boot", 1), 1U);
  expectStory(0, {"saved-state:", "\"chargeLimit\" : 70"});
}

}  // namespace processtests
