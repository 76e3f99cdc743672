#pragma once

#include <string>

#include "HelperRecords.h"

namespace virtualmac {

/// The helper's record as a person reads it: what is enforced and why, how this Mac does it, and
/// what needs attention. Times are local.
std::string stateText(const korvel::HelperState& state,
                      const korvel::HelperCapabilities& capabilities);

/// The same on one line, for watching it change.
std::string stateLine(const korvel::HelperState& state);

/// What this Mac lets the helper control.
std::string capabilitiesText(const korvel::HelperCapabilities& capabilities);

}  // namespace virtualmac
