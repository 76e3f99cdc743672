#pragma once

#include <memory>
#include <string>

#include "Tests/seam/contract/SeamContract.h"

namespace virtualmac {

/// A machine that runs in real time on a thread of its own, and a process at the other end of a
/// socket, which shares the test's process: the remote seam as it is, but for the second process.
std::unique_ptr<SeamRig> makeRemoteRig(const std::string& profile);

}  // namespace virtualmac
