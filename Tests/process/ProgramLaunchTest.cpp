#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {

TEST(ProgramLaunchTest, AProgramIsToldItsMachineBeforeItsOwnWords) {
  const Mac mac;
  const Result result = mac.command({"launch", "--", "/bin/echo", "set-limit", "--help", "-5"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(result.out.starts_with("--machine-descriptor ")) << result.out;
  EXPECT_TRUE(result.out.ends_with(" --service com.korvel.app.helper --service-path " +
                                   mac.servicePath() + " --disk " + mac.root() +
                                   "/disk -- set-limit --help -5\n"))
      << result.out;
}

TEST(ProgramLaunchTest, WhatCannotBeLaunchedIsRefused) {
  const Mac mac;
  expectSays(mac.command({"launch", "--as", "nobody", "--", "/bin/echo"}), 2, {"nobody"});
  expectSays(mac.command({"launch", "--", "/no/such/program"}), 1, {"/no/such/program"});
  expectSays(mac.command({"launch"}), 2, {"program"});
  mac.tell({"down"});
  expectSays(mac.command({"launch", "--", "/bin/echo"}), 1, {"no virtual Mac is up"});
}

// A launched program is a client. It may not touch the hardware past the helper.
TEST(ProgramLaunchTest, AProgramThatAsksForAPrivilegeLosesItsMachineAndItsIdentity) {
  const Mac mac;
  {
    LineSocket program(mac.controlPath());
    program.send(R"({"command":"join","identity":"app"})");
    const auto joined = program.receive(20);
    ASSERT_TRUE(joined);
    EXPECT_EQ(nlohmann::json::parse(*joined).at("ok"), true);
    RawClient known(mac, std::nullopt);
    EXPECT_TRUE(known.call("pingWithReply:")) << "this process has an identity now";
    // A call by its kind, ticket and number: the first of all looks for the SMC.
    program.send(Bytes().u8(0).u32(1).u8(0).u8(0).frame());
    EXPECT_FALSE(program.receive(20)) << "the machine hangs up";
  }
  EXPECT_EQ(mac.journalCount("loses its machine: call 0 is not for this process", 1), 1U);
  RawClient unknown(mac, std::nullopt);
  unknown.send(callBody(1, "pingWithReply:").frame());
  EXPECT_TRUE(unknown.isCutOff());
}

}  // namespace processtests
