#include <gtest/gtest.h>

#include <filesystem>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

// No contents of a file, client or frame can end the machine, and the refusal names the bound.
namespace processtests {

namespace {

std::string nested(std::size_t depth) {
  std::string text;
  for (std::size_t level = 0; level < depth; ++level) text += '[';
  for (std::size_t level = 0; level < depth; ++level) text += ']';
  return text;
}

/// Lets the machine start its helper, kills the helper, and waits for the text in the journal.
void expectTold(const Mac& mac, const std::string& text) {
  auto journal = mac.follow();
  EXPECT_EQ(run("korvel-app", {"--root", mac.root(), "--timeout", "0.1", "ping"}).status, 1);
  mac.tell({"kill"});
  EXPECT_TRUE(journal.waitFor(text));
  EXPECT_EQ(mac.status().at("profile"), "newer-keys");
}

class BoundsTest : public testing::Test {
 protected:
  void expectAlive() const { EXPECT_EQ(mac.status().at("profile"), "newer-keys"); }
  std::string answerTo(const std::string& line) {
    LineSocket door(mac.controlPath());
    door.send(line);
    return door.receive(20).value_or("no answer");
  }

  const Mac mac;
};

}  // namespace

TEST_F(BoundsTest, AMachineSurvivesAStateFileThatIsNestedDeeplyAndReplaced) {
  ASSERT_EQ(mac.command({"down"}).status, 0);
  std::filesystem::create_directory(mac.stateDirectory());
  writeFile(mac.stateFile(), R"({"chargeLimit":)" + nested(200'000) + '}');
  ASSERT_EQ(mac.command({"up"}).status, 0);
  {
    RawClient client(mac);
    EXPECT_TRUE(succeeded(client.setChargeLimit(60)));
    expectAlive();
    EXPECT_EQ(mac.state().value("chargeLimit", 0), 60);
  }
  EXPECT_EQ(mac.command({"down"}).status, 0);
}

// This helper never looks at the file, like one that is killed early.
TEST(BoundsOfTheDiskTest, AMachineSurvivesAHelperThatLeavesAFileNestedDeeply) {
  const Mac mac({.helper = "exec sleep 600"});
  std::filesystem::create_directory(mac.stateDirectory());
  writeFile(mac.stateFile(), R"({"chargeLimit":)" + nested(200'000) + '}');
  expectTold(mac, "state.json created: 400016 bytes");
}

TEST(BoundsOfTheDiskTest, AMachineSurvivesAHelperThatLeavesAHugeFile) {
  const Mac mac({.helper = "exec sleep 600"});
  std::filesystem::create_directory(mac.stateDirectory());
  writeFile(mac.stateFile(), "");
  std::filesystem::resize_file(mac.stateFile(), std::uintmax_t{1} << 36U);
  expectTold(mac, "state.json created: 68719476736 bytes");
}

TEST_F(BoundsTest, ARequestThatIsNestedTooDeeplyIsRefused) {
  const std::string answer = answerTo(R"({"command":)" + nested(20'000) + '}');
  EXPECT_NE(answer.find("nested more than 512 deep"), std::string::npos) << answer;
  const std::string shallow = answerTo(R"({"command":"status","more":)" + nested(511) + '}');
  EXPECT_NE(shallow.find(R"("ok":true)"), std::string::npos) << shallow;
  expectAlive();
}

TEST_F(BoundsTest, ARequestThatIsTooLongIsRefusedAndEndsItsConnection) {
  const auto request = [](std::size_t bytes) {
    const std::string command = R"({"command":"status"})";
    return command + std::string(bytes - command.size(), ' ');
  };
  // The end of the line counts as a byte.
  EXPECT_NE(answerTo(request(65535)).find(R"("ok":true)"), std::string::npos);
  LineSocket door(mac.controlPath());
  door.send(request(65536));
  const std::string answer = door.receive(20).value_or("no answer");
  EXPECT_NE(answer.find("a request has more than 65536 bytes"), std::string::npos) << answer;
  const double began = clockNow();
  EXPECT_FALSE(door.receive(20));
  EXPECT_LT(clockNow() - began, 15) << "the connection is still there";
  expectAlive();
}

// The address sanitizer keeps for a while what was freed.
#ifdef __clang__
constexpr long keptKilobytes = __has_feature(address_sanitizer) ? 64'000 : 0;
#else
constexpr long keptKilobytes = 0;
#endif

// Otherwise a client that never reads its answers could fill the machine's memory.
TEST_F(BoundsTest, AClientThatDoesNotReadIsNotReadFromEither) {
  const auto memory = [this] {
    const auto facts = factsOf(mac.machinePid());
    return facts ? facts->residentKilobytes : 0;
  };
  LineSocket greedy(mac.controlPath());
  const long before = memory();
  std::size_t sent = 0;
  while (sent < 20'000 && greedy.sendNow(R"({"command":"fault","arguments":["list"]})")) ++sent;
  expectAlive();
  EXPECT_LT(sent, 20'000U) << "somebody took all of it";
  EXPECT_LT(memory() - before, 8'000 + keptKilobytes);
  for (std::size_t each = 0; each < sent; ++each)
    ASSERT_NE(greedy.receive(20).value_or("").find("smc-latency"), std::string::npos) << each;
}

TEST(BoundsCommandTest, AProfileThatBreaksABoundIsRefusedInOneLine) {
  const std::string path =
      std::filesystem::temp_directory_path() / ("bounds-" + std::to_string(::getpid()) + ".json");
  const auto errorOf = [&path](const std::string& text) {
    writeFile(path, text);
    const Result result =
        run("virtual-mac", {"--root", "/tmp/korvel-process-nowhere", "up", "--profile", path});
    EXPECT_EQ(result.status, 2) << result.err;
    return result.err;
  };
  EXPECT_EQ(errorOf(R"({"idleSleepMinutes": 1e999})"),
            "virtual-mac: " + path + ": a number out of range at byte 26: 1e999\n");
  EXPECT_EQ(errorOf(nested(20'000)), "virtual-mac: " + path + ": nested more than 512 deep\n");
  EXPECT_EQ(errorOf(std::string(1024UL * 1024 + 1, ' ')),
            "virtual-mac: " + path + ": larger than 1048576 bytes\n");
  std::filesystem::remove(path);
}

}  // namespace processtests
