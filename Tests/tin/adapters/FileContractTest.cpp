// The contract of the file adapter on the machine's disk, which the script can empty for each test.
#include <gtest/gtest.h>

#include "Tests/macos/MacRig.h"
#include "Tests/tin/runner/Operator.h"

namespace virtualmac {
namespace {

class EmptyDiskRig final : public MacRig {
 public:
  EmptyDiskRig() { tinmac::test::tellMachine("empty-disk"); }
};

RigKind adaptersOnAnEmptyDisk() {
  return {"EmptyDisk", [](const std::string&) { return std::make_unique<EmptyDiskRig>(); }};
}

INSTANTIATE_SEAM_CONTRACT(Tin, FileSystemContract, testing::Values(adaptersOnAnEmptyDisk()));

}  // namespace
}  // namespace virtualmac
