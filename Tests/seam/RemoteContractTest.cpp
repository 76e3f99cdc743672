#include "DiskFaults.h"
#include "Tests/seam/RemoteRig.h"

namespace virtualmac {
namespace {

const auto kinds = testing::Values(RigKind{"Socket", makeRemoteRig});
INSTANTIATE_SEAM_CONTRACTS(Remote, kinds);
INSTANTIATE_SEAM_CONTRACT(Remote, DiskFaults, kinds);

}  // namespace
}  // namespace virtualmac
