#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <string>

#include "VirtualMac/Server/ProgramBeside.h"
#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/LaunchArguments.h"
#include "VirtualMac/Tools/Version.h"
#include "VirtualMac/Web/PageLaunch.h"
#include "VirtualMac/Web/PagePlace.h"
#include "VirtualMac/Web/PageServer.h"

namespace virtualmac {

namespace {

int serve(const RootDirectory& root) {
  Descriptor socket(pageSocketNumber);
  const Descriptor claim(pageClaimNumber);
  ::signal(SIGPIPE, SIG_IGN);
  // Nobody waits for applications that have ended.
  ::signal(SIGCHLD, SIG_IGN);
  const auto token = pageToken(root);
  if (!token) return complain(pageProgramName, false, token.error(), exitFailed);
  auto feed = JournalFeed::open(root);
  if (!feed) return complain(pageProgramName, false, feed.error(), exitFailed);
  const auto port = portOf(socket);
  if (!port) return complain(pageProgramName, false, "it is not given a socket", exitUsage);
  PageServer page(PageRules{*port, *token}, root, **feed, programBeside("korvel-app"));
  page.serve(std::move(socket));
  // A browser that does not read may still have its thread; it ends with the program.
  std::_Exit(exitDone);
}

}  // namespace

}  // namespace virtualmac

int main(int argc, char** argv) {
  CLI::App arguments("The page of a virtual Mac. virtual-mac up --web starts it.",
                     virtualmac::pageProgramName);
  std::string root;
  arguments.add_option("--root", root, "The machine's directory")->required();
  virtualmac::addVersion(arguments, virtualmac::builtCommit);
  if (const auto status = virtualmac::statusOfArguments(arguments, argc, argv)) return *status;
  return virtualmac::serve(virtualmac::RootDirectory::at(root));
}
