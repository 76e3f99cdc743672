#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

class Machine;

/// The words that a machine takes at its door, and that its helper takes from applications, as one
/// JSON object for programs that offer them: settings with their values, faults, signals, deeds
/// without a value, identities, operations, and the profile. `signals` and `moreDeeds` are words
/// of the door's own.
std::string vocabularyJSON(const Machine& machine, const std::vector<std::string>& signals,
                           const std::vector<std::string_view>& moreDeeds);

}  // namespace virtualmac
