#pragma once

#include <sys/types.h>

#include <expected>
#include <string>

#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Web/Descriptor.h"

namespace virtualmac {

/// A page whose port is open and whose machine is still to come up. Until it is started, a browser
/// that connects waits.
struct ComingPage {
  Descriptor socket;
  Descriptor claim;
  int port = 0;
  std::string link;
};

/// Opens the page of the root's next machine. The error says what is wrong.
std::expected<ComingPage, std::string> preparePage(const RootDirectory& root, int port);

/// Starts the page's program, which ends with the machine, and closes the page's descriptors here.
/// Returns its pid, or what went wrong.
std::expected<pid_t, std::string> startPage(const RootDirectory& root, ComingPage& page);

/// How the page's program is told its descriptors.
inline constexpr const char* pageProgramName = "virtual-mac-page";
inline constexpr int pageSocketNumber = 3;
inline constexpr int pageClaimNumber = 4;

}  // namespace virtualmac
