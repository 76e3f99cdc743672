#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace virtualmac {

/// Seeded random numbers with the same sequence on every platform and library: a xoshiro256**
/// generator whose state is spread from the seed by splitmix64.
class Random {
 public:
  explicit Random(std::uint64_t seed) {
    for (std::uint64_t& word : state) {
      seed += 0x9E3779B97F4A7C15ULL;
      std::uint64_t mixed = seed;
      mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9ULL;
      mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBULL;
      word = mixed ^ (mixed >> 31);
    }
  }

  std::uint64_t next() {
    const std::uint64_t result = std::rotl(state[1] * 5, 7) * 9;
    const std::uint64_t shifted = state[1] << 17;
    state[2] ^= state[0];
    state[3] ^= state[1];
    state[1] ^= state[2];
    state[0] ^= state[3];
    state[2] ^= shifted;
    state[3] = std::rotl(state[3], 45);
    return result;
  }

  /// Uniform in [0, bound); `bound` is at least 1.
  std::uint64_t below(std::uint64_t bound) {
    // Values under the threshold would make the low results likelier.
    const std::uint64_t threshold = (0 - bound) % bound;
    for (;;) {
      const std::uint64_t value = next();
      if (value >= threshold) return value % bound;
    }
  }

  /// Uniform in [low, high], both included.
  std::int64_t between(std::int64_t low, std::int64_t high) {
    return low + static_cast<std::int64_t>(below(static_cast<std::uint64_t>(high - low) + 1));
  }

  /// Uniform in [0, 1).
  double unit() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

  /// True in `numerator` of `denominator` cases.
  bool chance(std::uint64_t numerator, std::uint64_t denominator) {
    return below(denominator) < numerator;
  }

 private:
  std::array<std::uint64_t, 4> state{};
};

}  // namespace virtualmac
