#include "Tests/seam/RemoteRig.h"

namespace virtualmac {
namespace {

INSTANTIATE_SEAM_CONTRACTS(Remote, testing::Values(RigKind{"Socket", makeRemoteRig}));

}  // namespace
}  // namespace virtualmac
