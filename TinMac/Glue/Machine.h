#pragma once

#include "Platform/Platform.h"
#include "VirtualMac/Remote/RemotePlatform.h"

namespace tinmac {

/// The virtual Mac that this process's frameworks speak to. Set once, before an image is bound.
void setMachine(virtualmac::RemotePlatform& remote);
korvel::Platform& machine();

}  // namespace tinmac
