#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "VirtualMac/Machine/PowerManagement.h"
#include "VirtualMac/Remote/MachineChannel.h"
#include "VirtualMac/Remote/MachineTime.h"

namespace virtualmac {

class DiskWatch;
class HelperProcess;
class Journal;
class Machine;

/// The machine's half of the remote seam, made from the tables of calls. It makes one helper's
/// calls on that helper's process in the model. Faults are the machine's own.
///
/// The caller lets latency pass, transports the bytes and keeps time. One thread at a time.
///
/// Failure: a call that is not in the table, or whose arguments do not read, is not made; the
/// reader says what is wrong.
class MachineHalf {
 public:
  MachineHalf(Machine& machine, HelperProcess& process, Journal& journal, DiskWatch& disk);
  ~MachineHalf();
  MachineHalf(const MachineHalf&) = delete;
  MachineHalf& operator=(const MachineHalf&) = delete;

  /// Sets the source of HelperHost::time; needed before the first call is served.
  void setTimeSource(std::function<MachineTime()> source);
  /// The handler gets the root domain's messages for this process.
  void setPowerHandler(PowerManagement::Deliver handler);

  /// The platform call that a message makes or, of a file, announces; none: it is of another kind.
  [[nodiscard]] static std::optional<SeamCall> seamCall(CallNumber number,
                                                        std::string_view arguments);
  /// The virtual seconds that must pass before a call may be served.
  [[nodiscard]] double latencySeconds(CallNumber number, std::string_view arguments) const;
  /// True: a call that gives something back takes time, so the helper must wait for it.
  [[nodiscard]] bool givingBackTakesTime() const;
  /// Makes the call and writes its result.
  void serve(CallNumber number, WireReader& arguments, WireWriter& result);

 private:
  struct Parts;
  std::unique_ptr<Parts> parts;
};

}  // namespace virtualmac
