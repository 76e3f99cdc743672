#include "SMCWriter.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "Base/Trap.h"
#include "KorvelHelperProtocol.h"

namespace korvel {

namespace {

using Block = std::array<std::uint8_t, smcBlockSize>;

// The block, field by field. It is kept as bytes and not as a struct: the device's layout packs a
// 9-byte record where a compiler would round it up.
namespace Field {
constexpr std::size_t key = 0;
constexpr std::size_t version = key + 4;             // six bytes, zero
constexpr std::size_t powerLimit = version + 6 + 2;  // sixteen bytes, zero, aligned to four
constexpr std::size_t dataSize = powerLimit + 16;
constexpr std::size_t dataType = dataSize + 4;
constexpr std::size_t dataAttributes = dataType + 4;
constexpr std::size_t padding = dataAttributes + 1 + 1;  // two bytes, zero, aligned to two
constexpr std::size_t result = padding + 2;
constexpr std::size_t status = result + 1;
constexpr std::size_t command = status + 1;
constexpr std::size_t data32 = command + 1 + 1;  // four bytes, zero, aligned to four
constexpr std::size_t bytes = data32 + 4;
}  // namespace Field

constexpr std::size_t payloadSize = 32;

static_assert(Field::version == 4);
static_assert(Field::powerLimit == 12);
static_assert(Field::dataSize == 28);
static_assert(Field::dataType == 32);
static_assert(Field::dataAttributes == 36);
static_assert(Field::padding == 38);
static_assert(Field::result == 40);
static_assert(Field::status == 41);
static_assert(Field::command == 42);
static_assert(Field::data32 == 44);
static_assert(Field::bytes == 48);
static_assert(Field::bytes + payloadSize == smcBlockSize);

constexpr std::uint8_t smcSuccess = 0;
constexpr std::uint8_t smcKeyNotFound = 132;

constexpr void store32(Block& block, std::size_t offset, std::uint32_t value) {
  for (std::size_t index = 0; index < 4; ++index) {
    block[offset + index] = static_cast<std::uint8_t>(value >> (8 * index));
  }
}

constexpr std::uint32_t load32(const Block& block, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t index = 0; index < 4; ++index) {
    value |= static_cast<std::uint32_t>(block[offset + index]) << (8 * index);
  }
  return value;
}

bool isForbidden(std::string_view key) { return key == "BCLM" || key == "CHWA" || key == "DISC"; }

// The user client is gone or was closed; a fresh connection cures either.
bool isStale(KernReturn code) { return code == ioReturnNoDevice || code == ioReturnNotOpen; }

class DescriptionOf {
 public:
  std::string operator()(const WriterError::ForbiddenKey& failure) const {
    return "Refused to write forbidden SMC key " + failure.key;
  }
  std::string operator()(const WriterError::KeyInfoFailed& failure) const {
    return "kSMCGetKeyInfo failed (kIOReturn=" + std::to_string(failure.kIOReturn) + ")";
  }
  std::string operator()(const WriterError::KeyNotFound& failure) const {
    return "SMC key " + failure.key + " not found on this host";
  }
  std::string operator()(const WriterError::WriteFailed& failure) const {
    return "kSMCWriteKey failed (kIOReturn=" + std::to_string(failure.kIOReturn) +
           ", smcResult=" + std::to_string(failure.smcResult) + ")";
  }
  std::string operator()(const WriterError::PayloadSizeMismatch& failure) const {
    return "Payload size mismatch (expected=" + std::to_string(failure.expected) +
           ", actual=" + std::to_string(failure.actual) + ")";
  }
  std::string operator()(const WriterError::OutOfRange& failure) const {
    return "Charge limit " + std::to_string(failure.value) + " outside [20, 100]";
  }
  std::string operator()(const WriterError::NativeControlFailed& failure) const {
    return "Native charge control failed: " + failure.message;
  }
  std::string operator()(const WriterError::SMCUnavailable& /*failure*/) const {
    return "AppleSMC service unavailable";
  }
};

class ReplyCodeOf {
 public:
  std::int64_t operator()(const WriterError::KeyNotFound& /*failure*/) const {
    return KorvelHelperError::codeUnsupportedCapability;
  }
  std::int64_t operator()(const WriterError::SMCUnavailable& /*failure*/) const {
    return KorvelHelperError::codeUnsupportedCapability;
  }
  std::int64_t operator()(const WriterError::OutOfRange& /*failure*/) const {
    return KorvelHelperError::codeOutOfRange;
  }
  template <class AnyOther>
  std::int64_t operator()(const AnyOther& /*failure*/) const {
    return KorvelHelperError::codeSMCWriteFailed;
  }
};

}  // namespace

std::string WriterError::description() const { return std::visit(DescriptionOf{}, kind); }

ErrorObject smcNSError(const WriterError& error) {
  PropertyValue::Dictionary details;
  if (const auto* failure = std::get_if<WriterError::WriteFailed>(&error.which())) {
    details.emplace("smcResult", std::int64_t{failure->smcResult});
  }
  return makeError(std::visit(ReplyCodeOf{}, error.which()), error.description(), details);
}

std::uint32_t fourCharCode(std::string_view key) {
  if (key.size() != 4) trap("an SMC key name has exactly four bytes");
  std::uint32_t code = 0;
  for (const char character : key) code = (code << 8U) | static_cast<std::uint8_t>(character);
  return code;
}

std::array<std::uint8_t, 32> bytesToTuple(std::span<const std::uint8_t> bytes) {
  std::array<std::uint8_t, payloadSize> field{};
  if (bytes.size() != field.size()) trap("an SMC payload field has exactly 32 bytes");
  std::ranges::copy(bytes, field.begin());
  return field;
}

bool matches(std::span<const std::uint8_t> read, std::span<const std::uint8_t> written) {
  if (read.empty() || read.size() < written.size()) return false;
  return std::ranges::equal(read.first(written.size()), written) &&
         std::ranges::all_of(read.subspan(written.size()),
                             [](std::uint8_t byte) { return byte == 0; });
}

SMCWriter::SMCWriter(SMCUserClient& userClient, Logger logger) : smc(userClient), log(logger) {
  openConnection();
}

SMCWriter::~SMCWriter() {
  if (connection != 0) smc.close(connection);
}

void SMCWriter::openConnection() {
  const ObjectRef service = smc.matchAppleSMC();
  if (service == 0) {
    log.fault("AppleSMC service not found at init");
    return;
  }
  ConnectionRef opened = 0;
  const KernReturn code = smc.open(service, opened);
  smc.objectRelease(service);
  if (code != kernSuccess) {
    log.fault("IOServiceOpen(AppleSMC) failed: %d", code);
    return;
  }
  connection = opened;
}

bool SMCWriter::reopenConnection() {
  if (connection != 0) {
    smc.close(connection);
    connection = 0;
  }
  keyInfoCache.clear();
  openConnection();
  if (connection == 0) {
    log.fault("AppleSMC reopen failed — writes will continue to fail until launchd respawns");
    return false;
  }
  log.log("AppleSMC connection reopened after stale-handle recovery");
  return true;
}

SMCWriter::CallOutcome SMCWriter::call(Command command, std::string_view key,
                                       const SMCKeyInfoData& info, const Payload& payload) {
  Block input{};
  store32(input, Field::key, fourCharCode(key));
  store32(input, Field::dataSize, info.dataSize);
  store32(input, Field::dataType, info.dataType);
  input[Field::command] = static_cast<std::uint8_t>(command);
  std::ranges::copy(payload, input.begin() + Field::bytes);
  CallOutcome outcome;
  outcome.code = smc.callStruct(connection, input, outcome.output);
  return outcome;
}

// One reopen and one retry, only where a fresh connection helps. The outcome is that of the last
// call made.
SMCWriter::CallOutcome SMCWriter::callRecovering(Command command, std::string_view key,
                                                 const SMCKeyInfoData& info,
                                                 const Payload& payload) {
  const CallOutcome first = call(command, key, info, payload);
  if (!isStale(first.code) || !reopenConnection()) return first;
  return call(command, key, info, payload);
}

std::expected<SMCKeyInfoData, WriterError> SMCWriter::keyInfo(std::string_view key) {
  if (const auto known = keyInfoCache.find(key); known != keyInfoCache.end()) return known->second;
  const CallOutcome outcome = callRecovering(Command::KeyInfo, key, {}, {});
  if (outcome.code != kernSuccess) {
    return std::unexpected(WriterError::KeyInfoFailed{outcome.code});
  }
  switch (outcome.output[Field::result]) {
    case smcSuccess:
      break;
    case smcKeyNotFound:
      return std::unexpected(WriterError::KeyNotFound{std::string(key)});
    default:
      return std::unexpected(WriterError::KeyInfoFailed{kernSuccess});
  }
  const SMCKeyInfoData info{load32(outcome.output, Field::dataSize),
                            load32(outcome.output, Field::dataType),
                            outcome.output[Field::dataAttributes]};
  keyInfoCache.emplace(key, info);
  return info;
}

std::expected<SMCWriter::Reading, WriterError> SMCWriter::readPayload(std::string_view key) {
  if (!hasConnection()) return std::unexpected(WriterError::SMCUnavailable{});
  const auto info = keyInfo(key);
  if (!info) return std::unexpected(info.error());
  const CallOutcome outcome = callRecovering(Command::Read, key, *info, {});
  const std::uint8_t result = outcome.output[Field::result];
  if (outcome.code != kernSuccess || result != smcSuccess) {
    return std::unexpected(WriterError::WriteFailed{outcome.code, result});
  }
  Reading reading;
  reading.size = std::min<std::size_t>(info->dataSize, payloadSize);
  std::copy_n(outcome.output.begin() + Field::bytes, reading.size, reading.bytes.begin());
  return reading;
}

std::expected<ByteList, WriterError> SMCWriter::readKey(std::string_view key) {
  const auto reading = readPayload(key);
  if (!reading) return std::unexpected(reading.error());
  const std::span<const std::uint8_t> content = reading->content();
  return ByteList(content.begin(), content.end());
}

WriterResult SMCWriter::writeKey(std::string_view key, std::span<const std::uint8_t> valueBytes) {
  const std::string name(key);
  if (isForbidden(key)) {
    log.fault("Refused to write forbidden SMC key %{public}s — FR-017", name.c_str());
    return std::unexpected(WriterError::ForbiddenKey{name});
  }
  if (!hasConnection()) return std::unexpected(WriterError::SMCUnavailable{});
  const auto info = keyInfo(key);
  if (!info) return std::unexpected(info.error());
  if (info->dataSize < valueBytes.size()) {
    return std::unexpected(WriterError::PayloadSizeMismatch{
        info->dataSize, static_cast<std::int64_t>(valueBytes.size())});
  }
  std::array<std::uint8_t, payloadSize> padded{};
  std::ranges::copy(valueBytes.first(std::min(valueBytes.size(), padded.size())), padded.begin());
  const CallOutcome outcome = callRecovering(Command::Write, key, *info, bytesToTuple(padded));
  const std::uint8_t result = outcome.output[Field::result];
  if (outcome.code != kernSuccess) {
    log.fault("kSMCWriteKey %{public}s IOConnect failed: %d", name.c_str(), outcome.code);
    return std::unexpected(WriterError::WriteFailed{outcome.code, result});
  }
  if (result != smcSuccess) {
    log.fault("kSMCWriteKey %{public}s smcResult=%hhu", name.c_str(), result);
    return std::unexpected(WriterError::WriteFailed{kernSuccess, result});
  }
  log.log("SMC write %{public}s bytes=%{public}s", name.c_str(), decimalList(valueBytes).c_str());
  return {};
}

VerifiedWrite SMCWriter::writeKeyAndVerify(std::string_view key,
                                           std::span<const std::uint8_t> valueBytes) {
  if (isForbidden(key)) {
    return {std::unexpected(WriterError::ForbiddenKey{std::string(key)}), false};
  }
  const auto holds = [&] {
    const auto reading = readPayload(key);
    return reading && matches(reading->content(), valueBytes);
  };
  if (holds()) return {{}, true};
  if (WriterResult written = writeKey(key, valueBytes); !written)
    return {std::move(written), false};
  return {{}, holds()};
}

bool SMCWriter::isPresent(std::string_view key) { return hasConnection() && keyInfo(key); }

HelperCapabilities SMCWriter::probeCapabilities() {
  const bool tahoeC = isPresent("CHTE");
  const bool metaB = isPresent("CH0B");
  const bool metaC = isPresent("CH0C");
  const bool tahoeD = isPresent("CHIE");
  const bool preTahoeD = isPresent("CH0I");
  HelperCapabilities found;
  found.tahoeCharging = tahoeC;
  found.preTahoeCharging = metaB && metaC && !tahoeC;
  found.tahoeDischarge = tahoeD;
  found.preTahoeDischarge = preTahoeD && !tahoeD;
  log.log(
      "capability probe: tahoeC=%{bool}d preTahoeC=%{bool}d (metaB=%{bool}d metaC=%{bool}d) "
      "tahoeD=%{bool}d preTahoeD=%{bool}d",
      found.tahoeCharging, found.preTahoeCharging, metaB, metaC, found.tahoeDischarge,
      found.preTahoeDischarge);
  return found;
}

}  // namespace korvel
