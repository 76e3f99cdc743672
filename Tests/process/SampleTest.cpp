#include <gtest/gtest.h>

#include <string>

#include "Tests/process/Mac.h"

namespace processtests {

namespace {

constexpr const char* gone = "the helper is gone; connecting again";

/// The sample client in C++, whose code is shown in docs/client.md.
class Sample {
 public:
  Sample(const Mac& mac, const std::string& percent)
      : program("korvel-sample", {"--root", mac.root(), percent}) {}
  std::string line() { return program.hear(60 * slowness()).value_or("nothing"); }
  int status() { return program.finish(); }

 private:
  Conversation program;
};

}  // namespace

TEST(SampleTest, SetsALimitShowsTheRecordAndStays) {
  const Mac mac;
  Sample sample(mac, "80");
  EXPECT_EQ(sample.line(), "limit 80 %, band 5 %, last write verified");
  EXPECT_EQ(mac.state().at("chargeLimit"), 80);
  EXPECT_EQ(mac.journalCount("client connected (count=1)", 1), 1U);
  EXPECT_EQ(mac.journalCount("client disconnected"), 0U);
}

TEST(SampleTest, HoldsTheLimitAgainAfterTheHelperWasLost) {
  const Mac mac({.speed = fast});
  Sample sample(mac, "80");
  EXPECT_EQ(sample.line(), "limit 80 %, band 5 %, last write verified");
  ASSERT_EQ(mac.journalCount("client connected (count=1)", 1), 1U);
  ASSERT_EQ(mac.journalCount("setChargeLimit ok", 1), 1U);
  mac.tell({"kill"});
  EXPECT_EQ(sample.line(), gone);
  EXPECT_EQ(sample.line(), "limit 80 %, band 5 %, last write verified");
  EXPECT_EQ(mac.journalCount("client connected (count=1)", 2), 2U);
  EXPECT_EQ(mac.journalCount("setChargeLimit ok", 2), 2U);
}

TEST(SampleTest, ARefusalEndsItWithTheHelpersReason) {
  const Mac mac;
  Sample sample(mac, "19");
  EXPECT_EQ(sample.line(), "refused: Charge limit must be between 20 and 100 (got 19). (400)");
  EXPECT_EQ(sample.status(), 1);
}

TEST(SampleTest, TriesAgainUntilThereIsAHelper) {
  Mac mac({.up = false});
  Sample sample(mac, "80");
  std::string line = sample.line();
  EXPECT_TRUE(line.starts_with("no helper: ")) << line;
  mac.bringUp();
  while (line.starts_with("no helper: ")) line = sample.line();
  EXPECT_EQ(line, "limit 80 %, band 5 %, last write verified");
}

TEST(SampleTest, AWrongCommandLineIsToldHowToBeRight) {
  expectSays(run("korvel-sample", {"256"}), 2, {"usage: korvel-sample"});
  expectSays(run("korvel-sample", {}), 2, {"usage: korvel-sample"});
  expectSays(run("korvel-sample", {"--help"}), 0, {"usage: korvel-sample"});
}

}  // namespace processtests
