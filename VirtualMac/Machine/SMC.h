#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/SMCUserClient.h"
#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Machine/NameTable.h"
#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

class RegistryClient;

/// Mach's answer to a message sent to a dead or zero name.
inline constexpr korvel::KernReturn machSendInvalidDest = 0x10000003;

inline constexpr std::uint8_t smcResultSuccess = 0;
inline constexpr std::uint8_t smcResultBadCommand = 0x82;
inline constexpr std::uint8_t smcResultKeyNotFound = 0x84;
inline constexpr std::uint8_t smcResultNotReadable = 0x85;
inline constexpr std::uint8_t smcResultNotWritable = 0x86;
inline constexpr std::uint8_t smcResultSizeMismatch = 0x87;

/// The System Management Controller: its keys, whose values outlive every process, and its
/// firmware. Journals every write that reached it:
///   smc   CHTE <- 01 00 00 00
///   smc   CHTE <- 01 00 00 00 refused (result 134)
///   smc   CHTE <- 01 00 00 00 ignored (value stays 00 00 00 00)
///   smc   BCLM <- 50 FORBIDDEN KEY
///
/// Fault model. The service may be missing; opening may be refused with any code; connections may
/// go stale at any moment (one code until closed); a call may be slow (the gate lets the time
/// pass); a key may vanish, answer any result code on one command or all, accept a write and keep
/// its value, read back junk after its value, or state a size that it does not have. A key's value
/// changes only by an obeyed write or by the hardware. Not modelled: torn values, a value that
/// decays by itself.
class SMC {
 public:
  struct Key {
    SMCKeyProfile profile;
    std::vector<std::uint8_t> bytes;          ///< As many as the size.
    std::optional<std::uint8_t> result;       ///< Answered to every command in place of success.
    std::optional<std::uint8_t> writeResult;  ///< Answered to writes only.
    bool silentlyRefuses = false;
    std::optional<std::uint32_t> statedSize;  ///< Stated by key info in place of the true size.
    /// Put after the last non-zero byte when read, after the first one of a value of zeros.
    std::vector<std::uint8_t> trailingJunk;
  };

  SMC(const Profile& profile, MachineContext& shared);

  /// The key's bytes; none: no such key.
  [[nodiscard]] std::optional<std::vector<std::uint8_t>> value(std::string_view key) const;
  /// Of all keys, in their order.
  [[nodiscard]] std::vector<std::string> names() const;
  /// Sets a value as the hardware does, without a journal line. False: no such key.
  bool setValue(std::string_view key, std::vector<std::uint8_t> bytes);
  /// Adds a key or replaces it.
  void addKey(const SMCKeyProfile& profile);
  /// False: no such key.
  bool removeKey(std::string_view key);
  /// For putting faults on a key. Null: no such key.
  [[nodiscard]] Key* key(std::string_view name);

  /// The effect of the present values on the hardware.
  [[nodiscard]] bool chargingInhibited() const;
  [[nodiscard]] bool inflowInhibited() const;
  /// A new contract with the adapter drops the inflow inhibit. True: there was one.
  bool dropInflowInhibit();

  bool servicePresent = true;
  /// Answered by every open in place of success.
  std::optional<korvel::KernReturn> openRefusal;
  double callLatencySeconds = 0;
  /// Makes every connection open now answer `code` until it is closed.
  void invalidateConnections(korvel::KernReturn code = korvel::ioReturnNotOpen);

  /// Writes that reached the SMC, by key; reads and key infos are only counted.
  [[nodiscard]] std::uint64_t writeCount(std::string_view key) const;
  [[nodiscard]] std::uint64_t totalWrites() const { return allWrites; }
  [[nodiscard]] std::uint64_t totalReads() const { return allReads; }
  /// Writes to keys that must never be written.
  [[nodiscard]] std::uint64_t forbiddenWrites() const { return forbidden; }

 private:
  friend class SMCClient;
  void answer(korvel::SMCBlockView input, korvel::SMCBlockSpan output);
  std::uint8_t perform(korvel::SMCBlockView input, korvel::SMCBlockSpan output);
  std::uint8_t writeKey(Key& key, std::uint32_t size, korvel::SMCBlockView input);
  [[nodiscard]] Key* byCode(std::uint32_t code);
  [[nodiscard]] const Key* find(std::string_view name) const;
  [[nodiscard]] std::uint8_t firstByte(std::string_view name) const;

  MachineContext& context;
  std::map<std::uint32_t, Key> keys;
  std::map<std::string, std::uint64_t, std::less<>> writes;
  std::uint64_t allWrites = 0;
  std::uint64_t allReads = 0;
  std::uint64_t forbidden = 0;
  std::uint64_t connectionEra = 0;  ///< Connections of an older era are stale.
  korvel::KernReturn staleCode = korvel::ioReturnNotOpen;
};

/// The seam's AppleSMC calls as one process makes them, with its names.
class SMCClient final : public korvel::SMCUserClient {
 public:
  SMCClient(SMC& controller, RegistryClient& registryClient);

  korvel::ObjectRef matchAppleSMC() override;
  korvel::KernReturn open(korvel::ObjectRef service, korvel::ConnectionRef& connection) override;
  korvel::KernReturn callStruct(korvel::ConnectionRef connection, korvel::SMCBlockView input,
                                korvel::SMCBlockSpan output) override;
  korvel::KernReturn close(korvel::ConnectionRef connection) override;
  korvel::KernReturn objectRelease(korvel::ObjectRef service) override;

  [[nodiscard]] std::size_t openConnections() const { return connections.size(); }
  void dropAll() { connections.clear(); }

 private:
  struct Connection {
    std::uint64_t era;
  };
  SMC& smc;
  RegistryClient& registry;
  NameTable<Connection> connections{0x07};
};

}  // namespace virtualmac
