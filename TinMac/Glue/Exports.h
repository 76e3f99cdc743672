#pragma once

#include <span>

#include "TinMac/System/Exports.h"

namespace tinmac {

/// The functions of Frameworks/Below.h and Frameworks/BelowServices.h that need the machine. Only
/// the frameworks may bind them.
std::span<const Export> glueExports();

}  // namespace tinmac
