#include "TinMac/Glue/Machine.h"

namespace tinmac {

namespace {
virtualmac::RemotePlatform* connected = nullptr;
}  // namespace

void setMachine(virtualmac::RemotePlatform& remote) { connected = &remote; }

korvel::Platform& machine() { return connected->platform(); }

}  // namespace tinmac
