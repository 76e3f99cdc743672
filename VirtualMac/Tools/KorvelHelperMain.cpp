#include "HelperEntry.h"
#include "VirtualMac/Tools/LaunchArguments.h"

/// The helper as a program of a virtual Mac. It is started by that Mac's launchd, never by hand.
int main(int argc, char** argv) {
  CLI::App arguments(
      "The charging helper of a virtual Mac. virtual-mac starts it when a client connects.",
      "KorvelHelper");
  virtualmac::LaunchOptions options;
  virtualmac::addLaunchOptions(arguments, options);
  if (const auto status = virtualmac::statusOfArguments(arguments, argc, argv)) return *status;
  virtualmac::RemotePlatform platform(options);
  return korvel::runHelper(platform.platform());
}
