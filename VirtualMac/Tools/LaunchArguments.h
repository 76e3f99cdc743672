#pragma once

#include <CLI/CLI.hpp>
#include <optional>

#include "VirtualMac/Remote/RemotePlatform.h"

namespace virtualmac {

/// Adds the words that tell a program its machine.
inline void addMachineOptions(CLI::App& arguments, LaunchOptions& options) {
  arguments
      .add_option("--machine-descriptor", options.machineDescriptor,
                  "Descriptor of the connection to the machine")
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
}

/// Adds the words that launchd starts a helper with.
inline void addLaunchOptions(CLI::App& arguments, LaunchOptions& options) {
  addMachineOptions(arguments, options);
  arguments
      .add_option("--service-descriptor", options.serviceDescriptor,
                  "Descriptor of the service's listening socket")
      ->required()
      ->check(CLI::NonNegativeNumber);
}

/// Parses the command line. None: the program may run; else it ends with this status, and help or
/// an error was printed.
inline std::optional<int> statusOfArguments(CLI::App& arguments, int argc, char** argv) {
  try {
    arguments.parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    const bool asked = error.get_exit_code() == 0;
    arguments.exit(error);
    return asked ? 0 : 2;
  }
}

}  // namespace virtualmac
