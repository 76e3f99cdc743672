#pragma once

#include "Tests/sweeps/Checks.h"
#include "Tests/sweeps/Stage.h"

/// These steps start the helper again after a kill, and judge its recovery.
namespace sweeps {

/// Starts the helper again, and gives it time and a Mac that is awake.
void startAgain(Stage& stage);

/// Checks that a discharge and SleepDisabled were ended where the record that was left says so, and
/// nowhere else.
void checkHardwareFollowsRecord(Findings& findings, Stage& stage, const Leftovers& left);

/// Starts the helper again and leaves it without a client: it recovers, and does no more.
void recoverAlone(Stage& stage, Findings& findings);

}  // namespace sweeps
