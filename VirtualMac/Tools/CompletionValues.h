#pragma once

#include "VirtualMac/Tools/Completion.h"

namespace virtualmac {

/// The kinds of value of `virtual-mac` and `korvel-app`, from the tables that the machine itself
/// reads: built-in profiles, identities, settings, faults, signals, and files.
ValueKinds programValues();

}  // namespace virtualmac
