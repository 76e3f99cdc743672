#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "Logger.h"
#include "Platform/SmartChargeRuntime.h"

namespace korvel {

/// The operating system's own charge limit, through a framework that is loaded and looked up by
/// name at run time. No lock of its own: one thread at a time.
class PowerUIChargeBackend {
 public:
  class BackendError {
   public:
    struct Rejected {
      std::int64_t limit;
    };
    struct ObjcCallFailed {
      std::string text;
    };
    BackendError(Rejected rejected) : kind(rejected) {}  // NOLINT(google-explicit-constructor)
    BackendError(ObjcCallFailed failed)                  // NOLINT(google-explicit-constructor)
        : kind(std::move(failed)) {}
    [[nodiscard]] std::string description() const;

   private:
    std::variant<Rejected, ObjcCallFailed> kind;
  };

  /// Null when anything the backend needs is missing; nothing is logged then.
  static std::unique_ptr<PowerUIChargeBackend> make(SmartChargeRuntime& objectRuntime,
                                                    Logger logger);
  ~PowerUIChargeBackend();
  PowerUIChargeBackend(const PowerUIChargeBackend&) = delete;
  PowerUIChargeBackend& operator=(const PowerUIChargeBackend&) = delete;

  /// Sets the limit, clamped, and reads it back. False: another limit was read.
  std::expected<bool, BackendError> setLimit(std::int64_t requested);
  /// The system's current limit, 100 when none is set.
  std::expected<std::int64_t, BackendError> readLimit();
  /// `requested` clamped into [lowest offered limit, 100]; deliberately not rounded to an offered
  /// one.
  [[nodiscard]] std::int64_t snapped(std::int64_t requested) const;
  /// The offered limits, ascending, each 1 to 100, 100 among them.
  [[nodiscard]] const std::vector<std::int64_t>& offeredLimits() const { return limits; }

 private:
  PowerUIChargeBackend(SmartChargeRuntime& objectRuntime, Logger logger, HandleRef smartCharge,
                       std::vector<std::int64_t> offered);

  SmartChargeRuntime& runtime;
  Logger log;
  HandleRef client;
  std::vector<std::int64_t> limits;
};

}  // namespace korvel
