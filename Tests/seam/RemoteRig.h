#pragma once

#include <memory>
#include <string>

#include "Tests/seam/contract/SeamContract.h"

namespace virtualmac {

/// Runs a machine in real time on a thread of its own, and the remote seam at the other end of a
/// socket. Only the second process is missing: both ends share the test's.
std::unique_ptr<SeamRig> makeRemoteRig(const std::string& profile);
/// As above; a delegate may wait for time, or for the machine, before it decides on a client.
std::unique_ptr<SeamRig> makeRemoteRigWhoseDecisionsMayWait(const std::string& profile);

}  // namespace virtualmac
