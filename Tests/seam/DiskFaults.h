#pragma once

#include "contract/SeamContract.h"

namespace virtualmac {

/// What the named faults of the machine's disk do to the file calls: the same in process and over a
/// socket. Real files know nothing of them.
class DiskFaults : public SeamContract {};

}  // namespace virtualmac
