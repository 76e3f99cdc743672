#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/PropertyValue.h"
#include "VirtualMac/Machine/ConnectionBreak.h"
#include "VirtualMac/Remote/MachineTime.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

/// What the machine says to a file call before it is made.
struct FileVerdict {
  std::optional<InjectedFault> fault;  ///< Takes the call's place.
  /// The errno of a call that would change a directory: known once the name was looked for. 0:
  /// none.
  std::int64_t changeRefusal = 0;
  std::uint64_t writeLimit = 0;  ///< A write takes no more bytes than this.
};

/// How a program stands to a requirement.
enum class PeerVerdict : std::uint8_t {
  Unknown,  ///< The machine knows no program with that pid: it has ended, or never was one of its.
  Fails,
  Satisfies
};

/// What the helper's process needs from its machine beside the platform's calls: those that are
/// made in the helper's own process (files, messages) but that the machine must know of.
class HelperHost {
 public:
  virtual ~HelperHost() = default;
  /// A file call is about to be made. Its latency has passed when this returns.
  virtual FileVerdict announceFileCall(SeamCall call) = 0;
  /// A file was put in the place of another, by its path as the helper knows it.
  virtual void fileReplaced(std::string_view path) = 0;
  /// Whether a requirement text parses; if not, the reason.
  virtual std::optional<std::string> requirementError(std::string_view requirement) = 0;
  virtual PeerVerdict judge(std::int32_t pid, std::string_view requirement) = 0;
  /// A line for the machine's journal.
  virtual void journal(std::string_view kind, std::string_view text) = 0;
  virtual std::optional<std::string> bundleExecutablePath() = 0;
  virtual korvel::PropertyValue bundleInfo(std::string_view key) = 0;
  /// How time runs now; changes are sent without being asked for.
  virtual MachineTime time() = 0;
  /// When a connection made now ends by itself; none: it does not.
  virtual std::optional<ConnectionBreak> connectionsBreak() = 0;
};

}  // namespace virtualmac
