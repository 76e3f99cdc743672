#include "TinMac/Glue/Launch.h"
#include "VirtualMac/Tools/LaunchArguments.h"

/// Runs a Mac's program as a client on a virtual Mac, under an emulator of the Mac's processor.
/// `virtual-mac launch` starts it.
int main(int argc, char** argv) {
  CLI::App arguments("Runs a Mac's arm64 program on Linux, as a client on a virtual Mac.",
                     "tin-mac-client");
  tinmac::Launch launch;
  tinmac::addImages(arguments, launch);
  virtualmac::addMachineOptions(arguments, launch.options);
  arguments
      .add_option("--service-path", launch.servicePath, "Socket of the service that has this name")
      ->required();
  arguments.add_option("arguments", launch.words, "The program's own arguments, after --");
  if (const auto status = virtualmac::statusOfArguments(arguments, argc, argv)) return *status;
  return tinmac::run(launch);
}
