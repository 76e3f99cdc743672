#pragma once

#include <span>
#include <string_view>

namespace virtualmac {

/// A profile file as it was compiled in: `name` is the file's name without ".json".
struct BuiltInProfile {
  std::string_view name;
  std::string_view text;
};

/// Every file of the folder profiles.
std::span<const BuiltInProfile> builtInProfiles();

}  // namespace virtualmac
