#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Machine/Faults.h"
#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

/// A machine with its journal and one started helper process.
struct Bench {
  explicit Bench(std::string_view profile = "newer-keys", std::uint64_t seed = 1);
  Bench(Profile kind, std::uint64_t seed);

  /// Returns the journal's lines of these kinds since the last call.
  std::string takeLines(std::string_view kinds);
  /// Switches a fault on or off and expects that to work.
  void fault(std::string_view line, bool on = true);

  Journal journal;
  Machine mac;
  std::shared_ptr<HelperProcess> helper;
};

/// A test on the usual bench. One that needs another kind of machine makes a bench of its own.
struct OnBench : testing::Test, Bench {
  using Bench::Bench;
};

/// Holds the 80-byte block, which the tests fill by hand at its documented offsets.
using Block = std::array<std::uint8_t, korvel::smcBlockSize>;

inline constexpr std::uint8_t readCommand = 5;
inline constexpr std::uint8_t writeCommand = 6;
inline constexpr std::uint8_t keyInfoCommand = 9;

Block commandBlock(std::uint8_t command, std::string_view key, std::uint32_t size = 0,
                   const std::vector<std::uint8_t>& bytes = {});
std::uint8_t resultIn(const Block& block);
std::uint32_t sizeIn(const Block& block);
std::uint32_t typeIn(const Block& block);
std::vector<std::uint8_t> bytesIn(const Block& block, std::size_t count);

/// Opens AppleSMC and releases the service; returns 0 when that failed.
korvel::ConnectionRef openSMC(HelperProcess& helper);
/// Writes a key over a new connection and returns the SMC's result.
std::uint8_t writeKey(HelperProcess& helper, std::string_view key,
                      const std::vector<std::uint8_t>& bytes);

}  // namespace virtualmac
