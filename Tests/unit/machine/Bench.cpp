#include "Tests/unit/machine/Bench.h"

#include <gtest/gtest.h>

namespace virtualmac {

namespace {

constexpr std::int32_t helperPid = 412;

Profile profileNamed(std::string_view name) {
  auto loaded = loadProfile(name);
  EXPECT_TRUE(loaded.has_value()) << (loaded ? "" : loaded.error());
  return loaded.value_or(Profile{});
}

void storeLittleEndian(Block& block, std::size_t offset, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) {
    block[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

std::uint32_t loadLittleEndian(const Block& block, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;) value = (value << 8U) | block[offset + i];
  return value;
}

}  // namespace

Bench::Bench(std::string_view profile, std::uint64_t seed) : Bench(profileNamed(profile), seed) {}

Bench::Bench(Profile kind, std::uint64_t seed)
    : journal([this] { return mac.totalSeconds(); }),
      mac(std::move(kind), journal, seed),
      helper(mac.startProcess(helperPid)) {
  journal.clear();
}

std::string Bench::takeLines(std::string_view kinds) {
  std::string lines = journal.text(kinds);
  journal.clear();
  return lines;
}

void Bench::fault(std::string_view line, bool on) {
  const auto switched = setFault(mac, line, on);
  EXPECT_TRUE(switched.has_value()) << (switched ? "" : switched.error());
}

Block commandBlock(std::uint8_t command, std::string_view key, std::uint32_t size,
                   const std::vector<std::uint8_t>& bytes) {
  Block block{};
  std::uint32_t code = 0;
  for (const char character : key) code = (code << 8U) | static_cast<unsigned char>(character);
  storeLittleEndian(block, 0, code);
  storeLittleEndian(block, 28, size);
  block[42] = command;
  for (std::size_t i = 0; i < bytes.size() && i < 32; ++i) block[48 + i] = bytes[i];
  return block;
}

std::uint8_t resultIn(const Block& block) { return block[40]; }
std::uint32_t sizeIn(const Block& block) { return loadLittleEndian(block, 28); }
std::uint32_t typeIn(const Block& block) { return loadLittleEndian(block, 32); }

std::vector<std::uint8_t> bytesIn(const Block& block, std::size_t count) {
  const auto first = block.begin() + 48;
  return {first, first + static_cast<std::ptrdiff_t>(count)};
}

korvel::ConnectionRef openSMC(HelperProcess& helper) {
  const korvel::ObjectRef service = helper.smc.matchAppleSMC();
  korvel::ConnectionRef connection = 0;
  helper.smc.open(service, connection);
  helper.smc.objectRelease(service);
  return connection;
}

std::uint8_t writeKey(HelperProcess& helper, std::string_view key,
                      const std::vector<std::uint8_t>& bytes) {
  const korvel::ConnectionRef connection = openSMC(helper);
  Block output{};
  const Block input =
      commandBlock(writeCommand, key, static_cast<std::uint32_t>(bytes.size()), bytes);
  EXPECT_EQ(helper.smc.callStruct(connection, input, output), korvel::kernSuccess);
  EXPECT_EQ(helper.smc.close(connection), korvel::kernSuccess);
  return resultIn(output);
}

}  // namespace virtualmac
