#include "TinMac/Glue/Machine.h"

#include <utility>

namespace tinmac {

namespace {
virtualmac::RemotePlatform* connected = nullptr;
KnownService found;
}  // namespace

void setMachine(virtualmac::RemotePlatform& remote) { connected = &remote; }

virtualmac::HelperHost& machineHost() { return connected->host(); }

void setService(KnownService known) { found = std::move(known); }

const KnownService& service() { return found; }

korvel::Platform& machine() { return connected->platform(); }

}  // namespace tinmac
