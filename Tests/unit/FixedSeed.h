#pragma once

#include <cstdlib>

namespace korvel::test {

/// Gives RapidCheck one seed for every run, unless RC_PARAMS in the environment says otherwise.
/// Make one before the first property of a program.
struct FixedSeed {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
  FixedSeed() { setenv("RC_PARAMS", "seed=2001 max_success=500", 0); }
};

}  // namespace korvel::test
