#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace virtualmac {

/// The platform calls that a machine answers.
enum class SeamCall : std::uint8_t {
#define SEAM_CALL(id, interface, method, kind) id,
#include "VirtualMac/Schedule/Calls.def"
#undef SEAM_CALL
};

inline constexpr std::size_t seamCallCount = 0
#define SEAM_CALL(id, interface, method, kind) +1
#include "VirtualMac/Schedule/Calls.def"
#undef SEAM_CALL
    ;

/// The way in which a call can fail; see the head of Calls.def.
enum class FailureKind : std::uint8_t {
  Kern,
  Object,
  Property,
  File,
  Sure,
  Security,
  Boolean,
  Posix,
  Slot,
  Release
};

struct SeamCallDescription {
  std::string_view id;         ///< "smcOpen": the name that fault rules and journals use.
  std::string_view interface;  ///< "SMCUserClient"
  std::string_view method;     ///< "open"
  FailureKind kind;
};

inline constexpr std::array<SeamCallDescription, seamCallCount> seamCalls{{
#define SEAM_CALL(id, interface, method, kind) {#id, #interface, #method, FailureKind::kind},
#include "VirtualMac/Schedule/Calls.def"
#undef SEAM_CALL
}};

constexpr const SeamCallDescription& describe(SeamCall call) {
  return seamCalls[static_cast<std::size_t>(call)];
}

/// A failure put in the place of a call: its code by the call's kind (kernel code, errno, status)
/// and, where the kind has one, a text.
struct InjectedFault {
  std::int64_t code = 0;
  std::string text;
  /// The call is made instead, and its answer comes back changed. For smcCallStruct and fileRead.
  bool changesAnswer = false;
};

/// Stands before every platform call that a machine in the same process answers.
class CallGate {
 public:
  virtual ~CallGate() = default;
  /// Counts the call, lets its latency pass, and says whether a fault takes its place. A killed
  /// helper's threads unwind from here, but never from a call of kind Release.
  virtual std::optional<InjectedFault> enter(SeamCall call) = 0;
};

}  // namespace virtualmac
