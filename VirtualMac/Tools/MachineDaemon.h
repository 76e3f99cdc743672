#pragma once

#include <expected>
#include <functional>
#include <string>

#include "VirtualMac/Server/MachineServer.h"

namespace virtualmac {

/// Why no machine can be started in this root directory.
std::string alreadyUpText(const RootDirectory& root);

/// Runs a machine in this process, in an existing root directory, until a command, SIGTERM or
/// SIGINT ends it. Returns an exit code. `ready` is told once: nothing when the machine is up, else
/// why it is not.
int runMachine(const MachineOptions& options,
               const std::function<void(const std::string& problem)>& ready);

/// The same in a process of its own, detached from the terminal. Returns when that machine is up,
/// with its pid, or the reason why it is not.
std::expected<pid_t, std::string> startMachine(const MachineOptions& options);

}  // namespace virtualmac
