#include "TinMac/Loader/FrameDescriptions.h"

#include <string_view>

namespace tinmac {

namespace {

constexpr std::uint64_t linkRegister = 30;
constexpr std::uint64_t absoluteAddress = 0;

template <typename Value>
void append(std::vector<std::byte>& bytes, Value value) {
  const auto raw = std::as_bytes(std::span(&value, 1));
  bytes.insert(bytes.end(), raw.begin(), raw.end());
}

void appendSleb(std::vector<std::byte>& bytes, std::int64_t value) {
  while (value < -0x40 || value >= 0x40) {
    appendByte(bytes, (static_cast<std::uint64_t>(value) & 0x7f) | 0x80);
    value >>= 7;
  }
  appendByte(bytes, static_cast<std::uint64_t>(value) & 0x7f);
}

}  // namespace

void appendByte(std::vector<std::byte>& bytes, std::uint64_t value) {
  bytes.push_back(static_cast<std::byte>(value));
}

void appendUleb(std::vector<std::byte>& bytes, std::uint64_t value) {
  while (value >= 0x80) {
    appendByte(bytes, (value & 0x7f) | 0x80);
    value >>= 7;
  }
  appendByte(bytes, value);
}

std::uint64_t FrameDescriptions::commonRecord(const CommonRules& common) {
  const auto [found, added] = commons.try_emplace(common, bytes.size());
  if (!added) {
    return found->second;
  }
  append<std::uint32_t>(bytes, 0);
  append<std::uint32_t>(bytes, 0);
  appendByte(bytes, 1);
  const std::string_view parts = common.personality ? "zPLR" : "zLR";
  for (const char part : parts) {
    appendByte(bytes, static_cast<unsigned char>(part));
  }
  appendByte(bytes, 0);
  appendUleb(bytes, common.codeFactor);
  appendSleb(bytes, common.dataFactor);
  appendByte(bytes, linkRegister);
  appendUleb(bytes, common.personality ? 1 + sizeof(std::uint64_t) + 2 : 2);
  if (common.personality) {
    appendByte(bytes, absoluteAddress);
    append(bytes, *common.personality);
  }
  appendByte(bytes, absoluteAddress);
  appendByte(bytes, absoluteAddress);
  bytes.insert(bytes.end(), common.instructions.begin(), common.instructions.end());
  close(found->second);
  return found->second;
}

void FrameDescriptions::add(const FrameRules& rules) {
  const std::uint64_t common = commonRecord(rules.common);
  const std::uint64_t record = bytes.size();
  append<std::uint32_t>(bytes, 0);
  append(bytes, static_cast<std::uint32_t>(bytes.size() - common));
  append(bytes, rules.start);
  append(bytes, rules.end - rules.start);
  appendUleb(bytes, sizeof rules.languageData);
  append(bytes, rules.languageData);
  bytes.insert(bytes.end(), rules.instructions.begin(), rules.instructions.end());
  close(record);
}

/// Fills a record up with empty instructions and writes its length, which leaves itself out.
void FrameDescriptions::close(std::uint64_t record) {
  while (bytes.size() % sizeof(std::uint64_t) != 0) {
    appendByte(bytes, 0);
  }
  const auto length = static_cast<std::uint32_t>(bytes.size() - record - sizeof(std::uint32_t));
  std::memcpy(bytes.data() + record, &length, sizeof length);
}

std::vector<std::byte> FrameDescriptions::finish() && {
  append<std::uint32_t>(bytes, 0);
  return std::move(bytes);
}

}  // namespace tinmac
