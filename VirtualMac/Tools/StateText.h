#pragma once

#include <optional>
#include <string>

#include "HelperRecords.h"
#include "VirtualMac/Server/EnforcementTrail.h"

namespace virtualmac {

/// The facts that an answer is made of. The record and the capabilities are the helper's answers;
/// the rest is from its log, as the machine's journal has it.
struct Told {
  korvel::HelperState state;
  korvel::HelperCapabilities capabilities;
  Enforcement enforcement;
  std::optional<Enforcement> before;  ///< Before this client asked; none: as `enforcement`.
};

/// For a person: whether the limit is held and why, how this Mac does it, and what needs attention.
/// It claims nothing that a look into the hardware could contradict. Times are local.
std::string stateText(const Told& told);

/// The same on one line, for watching it change.
std::string stateLine(const Told& told);

/// Tells what this Mac lets the helper control.
std::string capabilitiesText(const korvel::HelperCapabilities& capabilities);

}  // namespace virtualmac
