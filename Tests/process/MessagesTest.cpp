#include <gtest/gtest.h>

#include <random>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

namespace {

const std::string setLimit = "setChargeLimit:reply:";

struct BadMessage {
  const char* name;
  std::string bytes;
  const char* reason;   ///< The reason in the journal's line about the end.
  bool finish = false;  ///< The peer stops after these bytes.
};

Bytes nestedArrays(int depth) {
  Bytes bytes;
  for (int level = 0; level < depth; ++level) bytes.u8(7).u32(1);
  return bytes.boolean(true);
}

std::vector<BadMessage> badMessages() {
  const auto limitCall = [](const Bytes& arguments, unsigned count) {
    return callBody(1, setLimit, arguments, count).frame();
  };
  return {
      {"Empty", Bytes().frame(), "malformed"},
      {"LengthOfFourGigabytes", Bytes().u32(0xFFFFFFFFU).body(), "oversized"},
      {"JustTooLong", Bytes().u32(256 * 1024 + 1).body(), "oversized"},
      {"HalfAHeader", std::string("\x10\x00", 2), "truncated", true},
      {"HalfABody", Bytes().u32(100).raw("short").body(), "truncated", true},
      {"AReply", Bytes().u8(2).u32(1).u8(0).frame(), "malformed"},
      {"UnknownKind", Bytes().u8(9).frame(), "malformed"},
      {"UnknownSelector", callBody(1, "eraseEverythingWithReply:").frame(), "unknown selector"},
      {"EmptySelector", callBody(1, "").frame(), "unknown selector"},
      {"SelectorWithANul", callBody(1, std::string("quit\0", 5)).frame(), "unknown selector"},
      {"LimitAsText", limitCall(Bytes().string("80"), 1), "malformed"},
      {"LimitAsBoolean", limitCall(Bytes().boolean(true), 1), "malformed"},
      {"LimitTooLarge", limitCall(Bytes().integer(256), 1), "malformed"},
      {"LimitNegative", limitCall(Bytes().integer(-1), 1), "malformed"},
      {"LimitMissing", limitCall(Bytes(), 0), "malformed"},
      {"LimitTwice", limitCall(Bytes().integer(80).integer(80), 2), "malformed"},
      {"SwitchAsNumber", callBody(1, "forceDischarge:reply:", Bytes().integer(1), 1).frame(),
       "malformed"},
      {"PingWithAnArgument", callBody(1, "pingWithReply:", Bytes().integer(1), 1).frame(),
       "malformed"},
      {"BooleanOfTwo", limitCall(Bytes().u8(1).u8(2), 1), "malformed"},
      {"UnknownType", limitCall(Bytes().u8(200), 1), "malformed"},
      {"NestedTooDeeply", limitCall(nestedArrays(1000), 1), "malformed"},
      {"ArrayOfFourBillion", limitCall(Bytes().u8(7).u32(0xFFFFFFFFU), 1), "malformed"},
      {"SameKeyTwice",
       limitCall(Bytes().u8(8).u32(2).text("a").boolean(true).text("a").boolean(true), 1),
       "malformed"},
      {"BytesLeftOver", Bytes().add(callBody(1, "pingWithReply:")).u8(0).frame(), "malformed"},
      {"TextBeyondTheEnd", Bytes().u8(1).u32(1).u32(1000).raw("ping").frame(), "malformed"},
  };
}

}  // namespace

// Each of these messages ends its own connection, for a logged reason, and nothing else.
TEST(MessagesTest, WhatMakesNoSenseEndsThatOneConnection) {
  const Mac mac;
  RawClient other(mac);
  ASSERT_TRUE(succeeded(other.setChargeLimit(75)));
  const auto pid = mac.helper();
  for (const BadMessage& bad : badMessages()) {
    SCOPED_TRACE(bad.name);
    auto journal = mac.follow();
    RawClient client(mac);
    client.send(bad.bytes);
    if (bad.finish) client.finish();
    EXPECT_TRUE(client.isCutOff());
    EXPECT_TRUE(journal.waitFor(std::string("cut off: ") + bad.reason, 5));
    const auto state = other.getState();
    ASSERT_TRUE(state);
    EXPECT_EQ(state->at("chargeLimit"), 75);
  }
  EXPECT_EQ(mac.helper(), pid);
}

// A good call is answered even if a bad one follows on the same connection.
TEST(MessagesTest, CallsBeforeTheBadMessageAreAnswered) {
  const Mac mac;
  RawClient client(mac);
  ASSERT_TRUE(client.call("pingWithReply:"));
  client.send(callBody(7, "nothing").frame());
  EXPECT_TRUE(client.isCutOff());
}

TEST(MessagesTest, NoiseNeverReachesTheHelperOrEndsIt) {
  std::mt19937 random(announceSeed());
  const Mac mac;
  RawClient other(mac);
  ASSERT_TRUE(succeeded(other.setChargeLimit(75)));
  const auto pid = mac.helper();
  const std::string good = callBody(1, setLimit, Bytes().integer(33), 1).body();
  for (int round = 0; round < 300; ++round) {
    std::string body = good;
    // A good message with a few changed bytes gets further than pure noise. Its last byte stays,
    // since another number there would make another good message.
    const int changes = 1 + static_cast<int>(random() % 4);
    for (int change = 0; change < changes; ++change)
      body[random() % 31] = static_cast<char>(random());
    if (round % 3 == 0) body.resize(random() % body.size());
    if (body == good) continue;
    RawClient client(mac);
    client.send(Bytes().text(body).body());
    client.finish();
    client.receive(20);  // It is answered if only the ticket changed, else cut off.
  }
  const auto state = other.getState();
  ASSERT_TRUE(state);
  EXPECT_EQ(mac.helper(), pid);
}

TEST(MessagesTest, AFailureArrivesAsAnError) {
  const Mac mac;
  RawClient client(mac);
  const auto reply = client.setChargeLimit(101);
  ASSERT_TRUE(reply);
  ASSERT_EQ(reply->values.size(), 2U);
  EXPECT_EQ(reply->values[0], false);
  EXPECT_EQ(reply->values[1].at("domain"), "KorvelHelperError");
  EXPECT_EQ(reply->values[1].at("code"), 400);
  EXPECT_EQ(reply->values[1].at("userInfo").at("NSLocalizedDescription"),
            "Charge limit must be between 20 and 100 (got 101).");
}

TEST(MessagesTest, TheHardwaresResultArrivesAsANumber) {
  const Mac mac;
  RawClient client(mac);
  mac.tell({"set", "battery", "90"});
  ASSERT_TRUE(succeeded(client.setChargeLimit(50)));
  mac.tell({"fault", "smc-write-result", "CHIE", "134", "on"});
  const auto reply = client.forceDischarge(true);
  ASSERT_TRUE(reply);
  ASSERT_EQ(reply->values[0], false);
  EXPECT_EQ(reply->values[1].at("code"), 500);
  EXPECT_EQ(reply->values[1].at("userInfo").at("smcResult"), 134);
}

}  // namespace processtests
