#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "Base/ByteList.h"
#include "HelperRecords.h"
#include "Logger.h"
#include "Platform/SMCUserClient.h"

namespace korvel {

/// The SMC's own description of a key.
struct SMCKeyInfoData {
  std::uint32_t dataSize = 0;  ///< Payload bytes the key holds.
  std::uint32_t dataType = 0;  ///< Four-character type code.
  std::uint8_t dataAttributes = 0;

  friend bool operator==(const SMCKeyInfoData&, const SMCKeyInfoData&) = default;
};

/// Why a hardware write path failed. `description()` is the text of logs and error replies.
class WriterError {
 public:
  struct ForbiddenKey {
    std::string key;
  };
  struct KeyInfoFailed {
    KernReturn kIOReturn;
  };
  struct KeyNotFound {
    std::string key;
  };
  struct WriteFailed {
    KernReturn kIOReturn;
    std::uint8_t smcResult;
  };
  struct PayloadSizeMismatch {
    std::int64_t expected;
    std::int64_t actual;
  };
  struct OutOfRange {
    std::int64_t value;
  };
  struct NativeControlFailed {
    std::string message;
  };
  struct SMCUnavailable {};
  using Case = std::variant<ForbiddenKey, KeyInfoFailed, KeyNotFound, WriteFailed,
                            PayloadSizeMismatch, OutOfRange, NativeControlFailed, SMCUnavailable>;

  template <class Kind>
    requires std::is_constructible_v<Case, Kind>
  WriterError(Kind failure) : kind(std::move(failure)) {}  // NOLINT(google-explicit-constructor)

  [[nodiscard]] std::string description() const;
  [[nodiscard]] const Case& which() const { return kind; }

 private:
  Case kind;
};

using WriterResult = std::expected<void, WriterError>;

/// The error that a client gets for a failed hardware write: its code by case, its description as
/// text.
ErrorObject smcNSError(const WriterError& error);

/// The outcome of a write that was read back.
struct VerifiedWrite {
  WriterResult result;
  bool verified = false;
};

/// The helper's only door to the System Management Controller: reads, writes and verified writes of
/// keys over one connection to AppleSMC. Recovers once from a stale connection, refuses forbidden
/// keys, remembers the key info of every key it has touched until the connection is reopened. No
/// lock of its own: one thread at a time.
class SMCWriter {
 public:
  /// Opens the connection. A missing SMC is logged and leaves the writer unconnected; every later
  /// operation then tries to reopen first.
  SMCWriter(SMCUserClient& userClient, Logger logger);
  ~SMCWriter();
  SMCWriter(const SMCWriter&) = delete;
  SMCWriter& operator=(const SMCWriter&) = delete;

  /// Plain write, zero-padded to the key's size.
  WriterResult writeKey(std::string_view key, std::span<const std::uint8_t> valueBytes);
  /// Writes unless the key already holds the value, then reads back.
  VerifiedWrite writeKeyAndVerify(std::string_view key, std::span<const std::uint8_t> valueBytes);
  std::expected<ByteList, WriterError> readKey(std::string_view key);
  /// The four SMC families; nativeCharging is left false.
  HelperCapabilities probeCapabilities();
  /// True when the SMC knows the key, reconnecting first where there is no connection.
  bool isPresent(std::string_view key);

 private:
  enum class Command : std::uint8_t { Read = 5, Write = 6, KeyInfo = 9 };
  using Payload = std::array<std::uint8_t, 32>;
  struct CallOutcome {
    KernReturn code = kernSuccess;
    std::array<std::uint8_t, smcBlockSize> output{};
  };
  struct Reading {
    Payload bytes{};
    std::size_t size = 0;
    [[nodiscard]] std::span<const std::uint8_t> content() const {
      return std::span(bytes).first(size);
    }
  };

  void openConnection();
  bool reopenConnection();
  bool hasConnection() { return connection != 0 || reopenConnection(); }
  std::expected<SMCKeyInfoData, WriterError> keyInfo(std::string_view key);
  std::expected<Reading, WriterError> readPayload(std::string_view key);
  CallOutcome call(Command command, std::string_view key, const SMCKeyInfoData& info,
                   const Payload& payload);
  CallOutcome callRecovering(Command command, std::string_view key, const SMCKeyInfoData& info,
                             const Payload& payload);

  SMCUserClient& smc;
  Logger log;
  ConnectionRef connection = 0;
  std::map<std::string, SMCKeyInfoData, std::less<>> keyInfoCache;
};

/// Folds a four-byte key name big-endian into its code; traps on any other length.
std::uint32_t fourCharCode(std::string_view key);
/// The 32-byte payload field; traps on any other length.
std::array<std::uint8_t, 32> bytesToTuple(std::span<const std::uint8_t> bytes);
/// True when `read` begins with `written` and holds only zeros after it.
bool matches(std::span<const std::uint8_t> read, std::span<const std::uint8_t> written);

}  // namespace korvel
