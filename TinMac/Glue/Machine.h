#pragma once

#include <string>

#include "Platform/Platform.h"
#include "VirtualMac/Remote/RemotePlatform.h"

namespace tinmac {

/// The virtual Mac that this process's frameworks speak to. Set once, before an image is bound.
void setMachine(virtualmac::RemotePlatform& remote);
korvel::Platform& machine();
virtualmac::HelperHost& machineHost();

/// The service that a client finds on that Mac. Set once, as the machine.
struct KnownService {
  std::string name;
  std::string path;  ///< Of its socket. Empty: this process is no client.
};
void setService(KnownService known);
const KnownService& service();

}  // namespace tinmac
