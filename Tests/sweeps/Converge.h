#pragma once

#include "Tests/sweeps/Checks.h"
#include "Tests/sweeps/Stage.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace sweeps {

/// Lists the lasting differences that earlier faults excuse.
struct Excuses {
  bool descriptors = false;    ///< A failed close keeps its descriptor.
  bool assertions = false;     ///< A failed release is not tried again.
  bool sleepDisabled = false;  ///< Setting it, or recording its owner, failed.
  bool claim = false;          ///< The reverted record claims SleepDisabled.
  bool failedCalls = false;    ///< Connections broke and came back.
  bool gateByItself = false;   ///< The loop's target and the record may differ.
  bool otherFamily = false;    ///< An earlier run may have used other keys.
  bool restart = false;        ///< The helper learned something wrong that only a restart corrects.
};
Excuses excusesFor(virtualmac::SeamCall call, const Stage& stage);

/// Ends a case once its faults have ended: waits for every reply, connects a client to a helper
/// that knows the whole machine, and restores normal settings. The gate must follow, first by
/// itself, then both ways on command; then nothing may be left without an excuse, and quit must
/// exit with 0.
void converge(Stage& stage, Findings& findings, const Excuses& excuses);

}  // namespace sweeps
