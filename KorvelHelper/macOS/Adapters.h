#pragma once

#include <memory>

#include "Platform/CodeSigning.h"
#include "Platform/Dispatch.h"
#include "Platform/FileSystem.h"
#include "Platform/IORegistry.h"
#include "Platform/PowerAssertions.h"
#include "Platform/PowerSettings.h"
#include "Platform/PowerSources.h"
#include "Platform/Process.h"
#include "Platform/RootPowerDomain.h"
#include "Platform/SMCUserClient.h"
#include "Platform/SmartChargeRuntime.h"
#include "Platform/UnifiedLog.h"
#include "Platform/WallClock.h"
#include "Platform/XPCListener.h"

/// The seam on a real Mac. Each adapter converts its arguments, makes one call and converts what
/// came back: no default, no retry, no log line. An adapter that decides says so at its class.
namespace korvel::macos {

std::unique_ptr<SMCUserClient> makeSMCUserClient();
std::unique_ptr<IORegistry> makeIORegistry();
std::unique_ptr<PowerSources> makePowerSources();
std::unique_ptr<PowerAssertions> makePowerAssertions();
std::unique_ptr<PowerSettings> makePowerSettings();
std::unique_ptr<RootPowerDomain> makeRootPowerDomain();
std::unique_ptr<SmartChargeRuntime> makeSmartChargeRuntime();
std::unique_ptr<FileSystem> makeFileSystem();
std::unique_ptr<Dispatch> makeDispatch();
std::unique_ptr<WallClock> makeWallClock();
std::unique_ptr<UnifiedLog> makeUnifiedLog();
std::unique_ptr<CodeSigning> makeCodeSigning();
std::unique_ptr<XPCService> makeXPCService();
std::unique_ptr<Process> makeProcess();

}  // namespace korvel::macos
