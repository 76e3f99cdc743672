#pragma once

namespace korvel {

class CodeSigning;
class Dispatch;
class FileSystem;
class IORegistry;
class PowerAssertions;
class PowerSettings;
class PowerSources;
class Process;
class RootPowerDomain;
class SMCUserClient;
class SmartChargeRuntime;
class UnifiedLog;
class WallClock;
class XPCService;

/// Everything the helper knows of the outside: one reference for each header of this folder. All
/// of it outlives the helper's objects.
struct Platform {
  SMCUserClient& smc;
  IORegistry& registry;
  PowerSources& powerSources;
  PowerAssertions& assertions;
  PowerSettings& powerSettings;
  RootPowerDomain& rootDomain;
  SmartChargeRuntime& smartCharge;
  FileSystem& files;
  Dispatch& dispatch;
  WallClock& clock;
  UnifiedLog& log;
  CodeSigning& codeSigning;
  XPCService& xpc;
  Process& process;
};

}  // namespace korvel
