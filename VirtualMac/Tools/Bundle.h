#pragma once

#include <expected>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// The profile that the machine was last brought up with, as its JSON.
inline std::string profileFileOf(const RootDirectory& root) { return root.path + "/profile.json"; }

/// Chooses what a bundle is made of.
struct BundleRequest {
  RootDirectory root;
  /// A client connects for the record and the capabilities, which arms the saved limit.
  bool asks = true;
  double timeoutSeconds = 5;
};

/// Everything about a machine that somebody who was not there needs, in one object: its status with
/// keys, settings and assertions, its profile, versions, the helper's record, capabilities and
/// state file, the ends of its log and of the journal. A part that cannot be had says why. The
/// helper is asked last, so that the rest tells of the time before. The machine's directory and the
/// user's home stand in it as ROOT and HOME. The error: there is no trace of a machine.
std::expected<nlohmann::ordered_json, std::string> bundleOf(const BundleRequest& request);

}  // namespace virtualmac
