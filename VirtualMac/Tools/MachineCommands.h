#pragma once

namespace virtualmac {

/// Exit codes of the programs.
inline constexpr int exitDone = 0;
inline constexpr int exitFailed = 1;
inline constexpr int exitUsage = 2;

/// The program `virtual-mac`.
int runVirtualMac(int argc, char** argv);

}  // namespace virtualmac
