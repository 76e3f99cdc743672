#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tests/unit/Recorded.h"
#include "VirtualMac/InProcess/Gated.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/FaultTable.h"
#include "VirtualMac/Schedule/PowerCallbacks.h"

namespace korvel::test {

/// A machine with one helper process, for parts of the helper that stand on the seam alone. Every
/// call of the process is noted as text; then the fault table decides about it, and then the
/// machine answers.
class RecordedMac {
 public:
  explicit RecordedMac(const virtualmac::Profile& profile = {}) : machine(profile, journal) {
    process->rootDomain.setMessageHandler([this](const virtualmac::PowerMessage& message) {
      seam.rootDomain.deliver(message.notifier, message.messageType,
                              static_cast<std::uintptr_t>(message.notificationID));
    });
  }

 private:
  struct Gate final : virtualmac::CallGate {
    explicit Gate(virtualmac::FaultTable& table) : faults(table) {}
    std::optional<virtualmac::InjectedFault> enter(virtualmac::SeamCall call) override {
      return faults.next(call).fault;
    }
    virtualmac::FaultTable& faults;
  };

  virtualmac::Journal journal{[] { return 0.0; }};

 public:
  virtualmac::Machine machine;
  std::shared_ptr<virtualmac::HelperProcess> process = machine.startProcess(412);
  virtualmac::FaultTable faults;
  std::vector<std::string> calls;

  /// The functions called, without what was passed.
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const std::string& call : calls) all.push_back(call.substr(0, call.find(' ')));
    return all;
  }
  [[nodiscard]] std::ptrdiff_t count(const std::string& name) const {
    return std::ranges::count(names(), name);
  }

  /// The seam of the process without notes, for doubles that change an answer.
  struct Seam {
    Gate gate;
    virtualmac::HelperProcess& process;
    virtualmac::Gated<PowerAssertions> assertions{gate, process.assertions};
    virtualmac::Gated<PowerSettings> powerSettings{gate, process.powerSettings};
    virtualmac::PowerCallbacks<virtualmac::Gated<RootPowerDomain>> rootDomain{gate,
                                                                              process.rootDomain};
    virtualmac::Gated<SmartChargeRuntime> smartCharge{gate, process.smartCharge};
    virtualmac::Gated<FileSystem> files{gate, process.files};
  };
  Seam seam{Gate(faults), *process};
  /// The same, with every call noted.
  Recorded<PowerAssertions> assertions{seam.assertions, calls};
  Recorded<PowerSettings> powerSettings{seam.powerSettings, calls};
  Recorded<RootPowerDomain> rootDomain{seam.rootDomain, calls};
  Recorded<SmartChargeRuntime> smartCharge{seam.smartCharge, calls};
  Recorded<FileSystem> files{seam.files, calls};
};

}  // namespace korvel::test
