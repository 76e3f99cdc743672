#pragma once

#include "Base/ErrorObject.h"
#include "Platform/CodeSigning.h"
#include "Platform/FileSystem.h"
#include "Platform/KernelTypes.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

// What an injected fault is to calls of each kind. A fault without a code means the plain failure
// of the kind, never success.

korvel::KernReturn kernCode(const InjectedFault& fault);
korvel::SecurityStatus securityCode(const InjectedFault& fault);
korvel::PosixResult posixFailure(const InjectedFault& fault);
korvel::ErrorObject fileError(const InjectedFault& fault);

}  // namespace virtualmac
