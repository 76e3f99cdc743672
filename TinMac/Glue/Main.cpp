#include "TinMac/Glue/Launch.h"
#include "VirtualMac/Tools/LaunchArguments.h"

/// Runs the Mac's own helper as a program of a virtual Mac. It is started by that Mac's launchd,
/// under an emulator of the Mac's processor.
int main(int argc, char** argv) {
  CLI::App arguments("Runs a Mac's arm64 program on Linux, as the helper of a virtual Mac.",
                     "tin-mac");
  tinmac::Launch launch;
  tinmac::addImages(arguments, launch);
  virtualmac::addLaunchOptions(arguments, launch.options);
  launch.options.decisionsMayWait = true;
  arguments.add_option("words", launch.words, "The program's own arguments, behind --");
  if (const auto status = virtualmac::statusOfArguments(arguments, argc, argv)) return *status;
  return tinmac::run(launch);
}
