#include "VirtualMac/Machine/SMC.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>
#include <string>
#include <utility>

#include "VirtualMac/Machine/Registry.h"

namespace virtualmac {

namespace {

using korvel::SMCBlockSpan;
using korvel::SMCBlockView;

enum class Command : std::uint8_t { Read = 5, Write = 6, KeyInfo = 9 };

/// Offsets of the block's fields that the controller reads or writes.
constexpr std::size_t keyOffset = 0;
constexpr std::size_t dataSizeOffset = 28;
constexpr std::size_t dataTypeOffset = 32;
constexpr std::size_t attributesOffset = 36;
constexpr std::size_t resultOffset = 40;
constexpr std::size_t commandOffset = 42;
constexpr std::size_t bytesOffset = 48;
constexpr std::size_t payloadSize = 32;
static_assert(bytesOffset + payloadSize == korvel::smcBlockSize);

/// Attribute bits of a key that may be read and written.
constexpr std::uint8_t readableAttribute = 0x80;
constexpr std::uint8_t writableAttribute = 0x40;

constexpr std::array<std::string_view, 3> forbiddenKeys{"BCLM", "CHWA", "DISC"};

std::uint32_t loadLittleEndian(SMCBlockView block, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;) value = (value << 8U) | block[offset + i];
  return value;
}

void storeLittleEndian(SMCBlockSpan block, std::size_t offset, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) {
    block[offset + i] = static_cast<std::uint8_t>(value >> (8U * i));
  }
}

/// Four characters as a number, the first one most significant; 0 for any other length.
std::uint32_t codeOf(std::string_view fourCharacters) {
  if (fourCharacters.size() != 4) return 0;
  std::uint32_t code = 0;
  for (const char character : fourCharacters) {
    code = (code << 8U) | static_cast<unsigned char>(character);
  }
  return code;
}

std::string hexText(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    std::array<char, 4> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(byte));
    if (!text.empty()) text += ' ';
    text += digits.data();
  }
  return text;
}

}  // namespace

SMC::SMC(const Profile& profile, MachineContext& shared)
    : servicePresent(profile.smcPresent), context(shared) {
  for (const SMCKeyProfile& key : profile.smcKeys) addKey(key);
}

void SMC::addKey(const SMCKeyProfile& profile) {
  Key key;
  key.profile = profile;
  key.bytes = profile.bytes;
  key.bytes.resize(profile.size);
  keys.insert_or_assign(codeOf(profile.name), std::move(key));
  context.noteChange();
}

bool SMC::removeKey(std::string_view key) {
  context.noteChange();
  return keys.erase(codeOf(key)) > 0;
}

SMC::Key* SMC::key(std::string_view name) { return byCode(codeOf(name)); }

SMC::Key* SMC::byCode(std::uint32_t code) {
  const auto found = keys.find(code);
  return found == keys.end() ? nullptr : &found->second;
}

const SMC::Key* SMC::find(std::string_view name) const {
  const auto found = keys.find(codeOf(name));
  return found == keys.end() ? nullptr : &found->second;
}

std::optional<std::vector<std::uint8_t>> SMC::value(std::string_view key) const {
  const Key* found = find(key);
  if (found == nullptr) return std::nullopt;
  return found->bytes;
}

std::vector<std::string> SMC::names() const {
  std::vector<std::string> all;
  all.reserve(keys.size());
  for (const auto& [code, key] : keys) all.push_back(key.profile.name);
  return all;
}

bool SMC::setValue(std::string_view key, std::vector<std::uint8_t> bytes) {
  Key* found = this->key(key);
  if (found == nullptr) return false;
  bytes.resize(found->profile.size);
  found->bytes = std::move(bytes);
  context.noteChange();
  return true;
}

std::uint8_t SMC::firstByte(std::string_view name) const {
  const Key* found = find(name);
  return found == nullptr || found->bytes.empty() ? std::uint8_t{0} : found->bytes.front();
}

bool SMC::chargingInhibited() const {
  // One key of the older pair alone does not stop the charger.
  return firstByte("CHTE") != 0 || (firstByte("CH0B") == 2 && firstByte("CH0C") == 2);
}

bool SMC::inflowInhibited() const {
  return firstByte("CHIE") == 8 || firstByte("CH0I") == 1 || firstByte("CH0J") == 1;
}

bool SMC::dropInflowInhibit() {
  const bool was = inflowInhibited();
  for (const std::string_view name : {"CHIE", "CH0I", "CH0J"}) setValue(name, {});
  return was;
}

void SMC::invalidateConnections(korvel::KernReturn code) {
  staleCode = code;
  ++connectionEra;
}

std::uint64_t SMC::writeCount(std::string_view key) const {
  const auto found = writes.find(key);
  return found == writes.end() ? 0 : found->second;
}

void SMC::answer(SMCBlockView input, SMCBlockSpan output) {
  std::fill(output.begin(), output.end(), std::uint8_t{0});
  output[resultOffset] = perform(input, output);
}

std::uint8_t SMC::perform(SMCBlockView input, SMCBlockSpan output) {
  const auto command = static_cast<Command>(input[commandOffset]);
  const std::uint32_t size = loadLittleEndian(input, dataSizeOffset);
  Key* found = byCode(loadLittleEndian(input, keyOffset));
  if (command != Command::Read && command != Command::Write && command != Command::KeyInfo)
    return smcResultBadCommand;
  if (command == Command::Read) ++allReads;
  if (found == nullptr) return smcResultKeyNotFound;
  if (command == Command::Write) return writeKey(*found, size, input);
  if (found->result) return *found->result;
  const std::uint32_t stated = found->statedSize.value_or(found->profile.size);
  if (command == Command::KeyInfo) {
    storeLittleEndian(output, dataSizeOffset, stated);
    storeLittleEndian(output, dataTypeOffset, codeOf(found->profile.type));
    output[attributesOffset] = found->profile.attributes;
    return smcResultSuccess;
  }
  if ((found->profile.attributes & readableAttribute) == 0) return smcResultNotReadable;
  if (size != stated) return smcResultSizeMismatch;
  const auto shown = output.subspan(bytesOffset, payloadSize);
  std::size_t at = std::min(found->bytes.size(), payloadSize);
  std::copy_n(found->bytes.begin(), at, shown.begin());
  // A firmware that forgets to clear its buffer leaves junk after the last significant byte. The
  // first byte is always significant, so that zero stays zero.
  while (at > 1 && shown[at - 1] == 0) --at;
  for (const std::uint8_t junk : found->trailingJunk) {
    if (at < payloadSize) shown[at++] = junk;
  }
  return smcResultSuccess;
}

std::uint8_t SMC::writeKey(Key& key, std::uint32_t size, SMCBlockView input) {
  const std::size_t sent = std::min<std::size_t>(size, payloadSize);
  const auto payload = input.subspan(bytesOffset, sent);
  const std::string& name = key.profile.name;
  ++allWrites;
  ++writes[name];
  std::string shown = hexText(payload);
  if (std::ranges::find(forbiddenKeys, std::string_view(name)) != forbiddenKeys.end()) {
    ++forbidden;
    shown += " FORBIDDEN KEY";
  }

  const bool writable = (key.profile.attributes & writableAttribute) != 0;
  const bool fits = size == key.profile.size;
  const std::uint8_t lawful = !writable ? smcResultNotWritable
                              : !fits   ? smcResultSizeMismatch
                                        : smcResultSuccess;
  const std::uint8_t result = key.writeResult.value_or(key.result.value_or(lawful));
  if (result != smcResultSuccess) {
    context.journal.record<EffectID::keyRefused>(name, shown, result);
  } else if (key.silentlyRefuses) {
    context.journal.record<EffectID::keyIgnored>(name, shown, hexText(key.bytes));
  } else {
    std::copy(payload.begin(), payload.end(), key.bytes.begin());
    context.noteChange();
    context.journal.record<EffectID::keyWritten>(name, shown);
  }
  return result;
}

SMCClient::SMCClient(SMC& controller, RegistryClient& registryClient)
    : smc(controller), registry(registryClient) {}

korvel::ObjectRef SMCClient::matchAppleSMC() { return registry.getMatchingService("AppleSMC"); }

korvel::KernReturn SMCClient::open(korvel::ObjectRef service, korvel::ConnectionRef& connection) {
  const Registry::EntryID entry = registry.entry(service);
  if (entry == Registry::noEntry) return machSendInvalidDest;
  if (!registry.conformsTo(service, "AppleSMC")) return korvel::ioReturnBadArgument;
  if (!smc.servicePresent) return korvel::ioReturnNoDevice;
  if (smc.openRefusal) return *smc.openRefusal;
  connection = connections.insert(Connection{smc.connectionEra});
  return korvel::kernSuccess;
}

korvel::KernReturn SMCClient::callStruct(korvel::ConnectionRef connection, SMCBlockView input,
                                         SMCBlockSpan output) {
  const Connection* found = connections.find(connection);
  if (found == nullptr) return machSendInvalidDest;
  if (!smc.servicePresent) return korvel::ioReturnNoDevice;
  if (found->era != smc.connectionEra) return smc.staleCode;
  smc.answer(input, output);
  return korvel::kernSuccess;
}

korvel::KernReturn SMCClient::close(korvel::ConnectionRef connection) {
  return connections.erase(connection) ? korvel::kernSuccess : machSendInvalidDest;
}

korvel::KernReturn SMCClient::objectRelease(korvel::ObjectRef service) {
  return registry.objectRelease(service);
}

}  // namespace virtualmac
