#pragma once

#include "Tests/sweeps/Checks.h"
#include "Tests/sweeps/Stage.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace sweeps {

/// What may be otherwise for good, because of what happened before.
struct Excuses {
  bool descriptors = false;    ///< A close that failed keeps its descriptor.
  bool assertions = false;     ///< A release that failed is not tried again.
  bool sleepDisabled = false;  ///< A setting that was written without, or cleared with, an owner.
  bool claim = false;          ///< The record that came back claims SleepDisabled.
  bool failedCalls = false;    ///< Connections broke and came back.
  bool gateByItself = false;   ///< The loop's target and the record may have gone apart.
  bool otherFamily = false;    ///< An earlier run may have used keys that this one does not.
  bool restart = false;        ///< The helper learned something that only a start corrects.
};
Excuses excusesFor(virtualmac::SeamCall call, const Stage& stage);

/// The end of a case under faults, after the faults ended: waits for every reply, brings a client
/// and a helper that sees the whole machine together, and asks for everything to be put in order.
/// The gate has to follow, first by itself, then both ways by command; after that nothing may be
/// left without an excuse; and a last quit ends it all with status 0.
void converge(Stage& stage, Findings& findings, const Excuses& excuses);

}  // namespace sweeps
