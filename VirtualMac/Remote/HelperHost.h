#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/PropertyValue.h"
#include "VirtualMac/Machine/ConnectionBreak.h"
#include "VirtualMac/Remote/MachineTime.h"
#include "VirtualMac/Schedule/Effect.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

/// The machine's word on a file call, given before the helper makes it.
struct FileVerdict {
  std::optional<InjectedFault> fault;  ///< Takes the call's place.
  /// errno for a call that would add or remove a directory entry; applied only after the path
  /// look-up. 0: none.
  std::int64_t changeRefusal = 0;
  std::uint64_t writeLimit = 0;  ///< A write takes no more bytes than this.
};

/// Tells whether a program satisfies a requirement.
enum class PeerVerdict : std::uint8_t {
  Unknown,  ///< No program of the machine has that pid; it may have ended.
  Fails,
  Satisfies
};

/// The helper's process asks its machine these things beside the platform's calls. Most concern
/// files and messages, which are real and made in the helper's process.
class HelperHost {
 public:
  virtual ~HelperHost() = default;
  /// Announces a file call. Its latency has passed when this returns.
  virtual FileVerdict announceFileCall(SeamCall call) = 0;
  /// Tells that the file at `path`, as the helper knows it, was replaced.
  virtual void fileReplaced(std::string_view path) = 0;
  /// The reason why a requirement text does not parse; none: it does.
  virtual std::optional<std::string> requirementError(std::string_view requirement) = 0;
  virtual PeerVerdict judge(std::int32_t pid, std::string_view requirement) = 0;
  /// Tells the machine's journal.
  virtual void journal(const Effect& effect) = 0;
  virtual std::optional<std::string> bundleExecutablePath() = 0;
  virtual korvel::PropertyValue bundleInfo(std::string_view key) = 0;
  /// Asked once; the machine sends later changes by itself.
  virtual MachineTime time() = 0;
  /// The moment at which a new connection ends by itself; none: it does not.
  virtual std::optional<ConnectionBreak> connectionsBreak() = 0;
};

}  // namespace virtualmac
