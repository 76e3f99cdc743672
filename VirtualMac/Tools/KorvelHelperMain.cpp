#include <getopt.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "HelperEntry.h"
#include "VirtualMac/Remote/RemotePlatform.h"

// The helper starts whenever a client comes, so its command line is read by the C library: with
// the library that reads the other programs' its code would be a fifth larger.

namespace {

constexpr int usageError = 2;

constexpr const char* help =
    R"(The charging helper of a virtual Mac. virtual-mac starts it when a client connects.

usage: KorvelHelper OPTIONS

  --machine-descriptor N  descriptor of the connection to the machine
  --service-descriptor N  descriptor of the service's listening socket
  --service NAME          the service that the socket stands for
  --disk DIRECTORY        stands for the machine's root directory
  --verbose               log lines go to standard error too
  --help                  shows this
)";

enum Choice : int { MachineDescriptor = 1, ServiceDescriptor, Service, Disk, Verbose, Help };

constexpr std::array choices{
    option{"machine-descriptor", required_argument, nullptr, MachineDescriptor},
    option{"service-descriptor", required_argument, nullptr, ServiceDescriptor},
    option{"service", required_argument, nullptr, Service},
    option{"disk", required_argument, nullptr, Disk},
    option{"verbose", no_argument, nullptr, Verbose},
    option{"help", no_argument, nullptr, Help},
    option{}};

std::optional<int> descriptorIn(std::string_view text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0) return std::nullopt;
  return number;
}

int refuse(const std::string& why) {
  std::fprintf(stderr, "KorvelHelper: %s; try KorvelHelper --help\n", why.c_str());
  return usageError;
}

/// Reads the command line. None: the program may run; else it ends with this status, and help or an
/// error was printed.
std::optional<int> statusOfArguments(int argc, char** argv, virtualmac::LaunchOptions& options) {
  for (;;) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread yet
    const int chosen = ::getopt_long(argc, argv, "", choices.data(), nullptr);
    if (chosen == -1) break;
    switch (chosen) {
      case MachineDescriptor:
      case ServiceDescriptor: {
        const auto number = descriptorIn(optarg);
        if (!number) return refuse(std::string("\"") + optarg + "\" is no descriptor");
        (chosen == MachineDescriptor ? options.machineDescriptor : options.serviceDescriptor) =
            *number;
        break;
      }
      case Service:
        options.serviceName = optarg;
        break;
      case Disk:
        options.diskRoot = optarg;
        break;
      case Verbose:
        options.verbose = true;
        break;
      case Help:
        std::fputs(help, stdout);
        return 0;
      default:
        return usageError;  // The C library has said what is wrong.
    }
  }
  if (optind < argc) return refuse(std::string("nothing is done with \"") + argv[optind] + '"');
  if (options.machineDescriptor < 0) return refuse("--machine-descriptor is missing");
  if (options.serviceDescriptor < 0) return refuse("--service-descriptor is missing");
  if (options.serviceName.empty()) return refuse("--service is missing");
  if (::access(options.diskRoot.c_str(), F_OK) != 0) {
    return refuse("--disk: there is no directory \"" + options.diskRoot + '"');
  }
  return std::nullopt;
}

}  // namespace

/// The helper as a program of a virtual Mac. It is started by that Mac's launchd, never by hand.
int main(int argc, char** argv) {
  virtualmac::LaunchOptions options;
  if (const auto status = statusOfArguments(argc, argv, options)) return *status;
  virtualmac::RemotePlatform platform(options);
  return korvel::runHelper(platform.platform());
}
