#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Logger.h"
#include "Platform/Dispatch.h"
#include "Platform/Platform.h"
#include "Platform/XPCListener.h"

namespace korvel {

class HelperImpl;

/// The oldest application version that the helper means to serve. Published; never consulted here.
inline constexpr std::string_view minimumAcceptableAppVersion = "2.0.0";

/// The whole life of the helper on the calling (main) thread. Returns 0 if the main loop ever does;
/// the orderly end is Process::exit from HelperImpl::shutdownGracefully.
int runHelper(Platform& platform);

/// The Team ID of the running helper's own signature; empty when it cannot be read.
std::string bundleTeamIdentifier(Platform& platform);

/// The requirement text for one client identity. Nothing is escaped: both come from the helper
/// itself.
std::string strictRequirement(std::string_view identifier, std::string_view team);

/// Admits connections: attaches the requirement, exports the one core, counts each accepted client
/// in once and then out once, whichever of the two is told first.
class HelperListenerDelegate final : public XPCListenerDelegate,
                                     public std::enable_shared_from_this<HelperListenerDelegate> {
 public:
  HelperListenerDelegate(Platform& platform, std::shared_ptr<HelperImpl> sharedCore,
                         std::string team);

  bool shouldAcceptNewConnection(XPCConnection& connection) override;

 private:
  Logger log;
  Dispatch& dispatch;
  std::shared_ptr<HelperImpl> core;
  std::string teamIdentifier;
};

}  // namespace korvel
