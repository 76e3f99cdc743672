#pragma once

#include "contract/SeamContract.h"

namespace virtualmac {

/// The named faults of the machine's disk have the same effect on file calls in process and over a
/// socket. Real files do not have them.
class DiskFaults : public SeamContract {};

}  // namespace virtualmac
