#include <CLI/CLI.hpp>

#include "HelperEntry.h"
#include "VirtualMac/Remote/RemotePlatform.h"

/// The helper as a program of a virtual Mac. It is started by that Mac's launchd, never by hand.
int main(int argc, char** argv) {
  CLI::App arguments(
      "The charging helper of a virtual Mac. virtual-mac starts it when a client connects.",
      "KorvelHelper");
  virtualmac::LaunchOptions options;
  arguments
      .add_option("--machine-descriptor", options.machineDescriptor,
                  "Descriptor of the connection to the machine")
      ->required()
      ->check(CLI::NonNegativeNumber);
  arguments
      .add_option("--service-descriptor", options.serviceDescriptor,
                  "Descriptor of the service's listening socket")
      ->required()
      ->check(CLI::NonNegativeNumber);
  arguments.add_option("--service", options.serviceName, "The service that the socket stands for")
      ->required();
  arguments
      .add_option("--disk", options.diskRoot,
                  "Directory that stands for the machine's root directory")
      ->required()
      ->check(CLI::ExistingDirectory);
  arguments.add_flag("--verbose", options.verbose, "Log lines go to standard error too");
  try {
    arguments.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool asked = error.get_exit_code() == 0;
    arguments.exit(error);
    return asked ? 0 : 2;
  }
  virtualmac::RemotePlatform platform(options);
  return korvel::runHelper(platform.platform());
}
