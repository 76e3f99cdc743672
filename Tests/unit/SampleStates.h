#pragma once

#include "HelperRecords.h"

namespace korvel::test {

/// A record in which every field differs from a fresh install's.
inline HelperState fullState() {
  HelperState state;
  state.chargeLimit = 75;
  state.sailingBand = 7;
  state.forceDischargeActive = true;
  state.heatPauseActive = true;
  state.lastWriteAt = Date{800000000};
  state.lastWriteVerified = false;
  state.lastDischargeAbortReason = "Stopped — \"lid\" / closed";
  state.lastDischargeAbortAt = Date{-1};
  state.topUpActive = true;
  state.sleepDisabledByKorvel = true;
  state.helperVersion = "2.0.0";
  return state;
}

}  // namespace korvel::test
