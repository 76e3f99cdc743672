#include "VirtualMac/Tools/LaunchCommand.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>

#include "VirtualMac/Server/ControlClient.h"
#include "VirtualMac/Tools/CommandLine.h"

namespace virtualmac {

namespace {

constexpr const char* serviceName = "com.korvel.app.helper";

int complainFor(const ProgramLaunch& launch, const std::string& text, int exitCode) {
  return complain("virtual-mac", launch.asJSON, text, exitCode);
}

/// Returns only when the program cannot be run.
int become(const ProgramLaunch& launch, const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  std::fflush(nullptr);
  ::execv(arguments.front(), arguments.data());
  return complainFor(launch, words.front() + ": " + std::system_category().message(errno),
                     exitFailed);
}

}  // namespace

int launchProgram(const ProgramLaunch& launch) {
  const RootDirectory root = RootDirectory::at(launch.root);
  auto machine = ControlClient::connect(root);
  if (!machine) return complainFor(launch, machine.error(), exitFailed);
  machine->send({{"command", "join"}, {"identity", launch.identity}});
  const auto reply = machine->receive();
  if (!reply) return complainFor(launch, "the machine went down", exitFailed);
  if (!reply->value("ok", false)) {
    return complainFor(launch, reply->value("error", std::string("no identity")),
                       reply->value("usage", false) ? exitUsage : exitFailed);
  }
  const int channel = machine->release();
  ::fcntl(channel, F_SETFD, 0);  // The program inherits it.
  std::vector<std::string> words{launch.words.front(),
                                 "--machine-descriptor",
                                 std::to_string(channel),
                                 "--service",
                                 serviceName,
                                 "--service-path",
                                 reply->value("service", std::string()),
                                 "--disk",
                                 root.disk(),
                                 "--"};
  words.insert(words.end(), launch.words.begin() + 1, launch.words.end());
  return become(launch, words);
}

}  // namespace virtualmac
