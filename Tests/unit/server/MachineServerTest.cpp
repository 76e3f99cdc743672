#include "VirtualMac/Server/MachineServer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace virtualmac {
namespace {

/// Runs a machine in a directory of its own; its helper only waits.
class MachineServerTest : public testing::Test {
 protected:
  MachineServerTest() {
    std::string name = (std::filesystem::temp_directory_path() / "machine-server-XXXXXX").string();
    EXPECT_NE(::mkdtemp(name.data()), nullptr);
    options.profile = loadProfile("newer-keys").value();
    options.root = RootDirectory{name};
    options.helperProgram = name + "/helper";
    std::ofstream(options.helperProgram) << "#!/bin/sh\nexec sleep 60\n";
    std::filesystem::permissions(options.helperProgram, std::filesystem::perms::owner_all);
    server.emplace(context, options);
    EXPECT_EQ(server->start(), std::nullopt);
    server->machine().launchd.job.startAtBoot = false;
    server->boot();
  }
  void TearDown() override {
    server.reset();
    std::filesystem::remove_all(options.root.path);
  }

  pid_t startHelper() {
    server->change([](Machine& mac) { mac.launchd.startByHand(); });
    return server->launchd().helper().value_or(0);
  }
  [[nodiscard]] std::string journal() const {
    std::ostringstream text;
    text << std::ifstream(options.root.journal()).rdbuf();
    return text.str();
  }

  asio::io_context context;
  MachineOptions options;
  std::optional<MachineServer> server;
};

}  // namespace

TEST_F(MachineServerTest, AHelperThatStillRunsEndsWithTheMachine) {
  const pid_t helper = startHelper();
  ASSERT_GT(helper, 0);
  server.reset();
  EXPECT_EQ(::kill(helper, 0), -1);
  EXPECT_EQ(errno, ESRCH);
  EXPECT_NE(journal().find("helper " + std::to_string(helper) + " killed"), std::string::npos)
      << journal();
}

TEST_F(MachineServerTest, NobodyWhoWaitsIsToldAnythingByAMachineThatIsGone) {
  ASSERT_GT(startHelper(), 0);
  bool told = false;
  server->reboot([&told] { told = true; });
  server->shutDown([&told] { told = true; });
  server.reset();
  EXPECT_FALSE(told);
}

TEST_F(MachineServerTest, EverybodyWhoWaitsForTheHelpersEndIsTold) {
  ASSERT_GT(startHelper(), 0);
  int told = 0;
  for (int each = 0; each < 3; ++each) server->reboot([&told] { ++told; });
  for (int round = 0; told < 3 && round < 1000; ++round)
    context.run_one_for(std::chrono::milliseconds(10));
  EXPECT_EQ(told, 3);
  EXPECT_EQ(server->launchd().helper(), std::nullopt);
}

}  // namespace virtualmac
