#include "VirtualMac/Remote/MachineHalf.h"

#include <cerrno>
#include <limits>
#include <system_error>
#include <tuple>
#include <type_traits>
#include <utility>

#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Machine/Requirement.h"
#include "VirtualMac/Remote/DiskWatch.h"
#include "VirtualMac/Remote/RemoteInterface.h"
#include "VirtualMac/Schedule/LogText.h"

namespace virtualmac {

namespace {

/// The helper's log lines as lines of the journal.
class JournalledLog final : public korvel::UnifiedLog {
 public:
  explicit JournalledLog(Journal& machineJournal) : journal(machineJournal) {}
  void emit(std::string_view, std::string_view category, korvel::LogLevel level,
            std::string_view text) override {
    journal.record<EffectID::logged>(category, levelName(level), text);
  }

 private:
  Journal& journal;
};

/// Applies the disk's faults to a file call that the helper makes itself.
FileVerdict fileVerdict(const Disk& disk, SeamCall call) {
  const bool writes = call == SeamCall::fileChmod || call == SeamCall::fileOpenExclusive ||
                      call == SeamCall::fileWrite || call == SeamCall::fileReplaceItem;
  int error = disk.refusal(describe(call).method, writes);
  if (error == 0 && call == SeamCall::fileWrite && disk.full) error = ENOSPC;
  if (error == 0 && call == SeamCall::fileReplaceItem && disk.replaceFails) error = EIO;
  FileVerdict verdict;
  const bool makes = call == SeamCall::fileMkdir;
  if (disk.readOnly && (makes || call == SeamCall::fileUnlink)) verdict.changeRefusal = EROFS;
  if (verdict.changeRefusal == 0 && disk.full && makes) verdict.changeRefusal = ENOSPC;
  verdict.writeLimit = disk.shortWriteBytes.value_or(std::numeric_limits<std::uint32_t>::max());
  if (error != 0) verdict.fault = InjectedFault{error, std::system_category().message(error)};
  return verdict;
}

}  // namespace

/// Also answers the calls of HelperHost.
struct MachineHalf::Parts final : HelperHost {
  Parts(Machine& owner, HelperProcess& helper, Journal& effects, DiskWatch& watch)
      : machine(owner), process(helper), machineJournal(effects), disk(watch) {}

  FileVerdict announceFileCall(SeamCall call) override { return fileVerdict(machine.disk, call); }
  void fileReplaced(std::string_view path) override { disk.replaced(path); }
  std::optional<std::string> requirementError(std::string_view requirement) override {
    const auto parsed = Requirement::parse(requirement);
    if (parsed) return std::nullopt;
    return parsed.error().message + " at " + std::to_string(parsed.error().position);
  }
  PeerVerdict judge(std::int32_t pid, std::string_view requirement) override {
    const SigningIdentity* code = machine.signatures.ofPid(pid);
    if (code == nullptr) return PeerVerdict::Unknown;
    const auto parsed = Requirement::parse(requirement);
    return parsed && parsed->satisfiedBy(*code) ? PeerVerdict::Satisfies : PeerVerdict::Fails;
  }
  void journal(const Effect& effect) override { machineJournal.record(effect); }
  std::optional<std::string> bundleExecutablePath() override {
    return process.bundleExecutablePath();
  }
  korvel::PropertyValue bundleInfo(std::string_view key) override {
    return process.bundleInfo(key);
  }
  MachineTime time() override { return timeSource(); }
  std::optional<ConnectionBreak> connectionsBreak() override { return machine.connectionsBreak; }

  template <class Interface, class Result, class... Arguments>
  void serve(Result (Interface::*method)(Arguments...), WireReader& arguments, WireWriter& result) {
    if constexpr (std::is_same_v<Interface, korvel::FileSystem>)
      arguments.fail("file calls are made in the helper's own process");
    else
      serveCall(method, std::get<Interface&>(answering), arguments, result);
  }

  Machine& machine;
  HelperProcess& process;
  Journal& machineJournal;
  DiskWatch& disk;
  std::function<MachineTime()> timeSource;
  JournalledLog log{machineJournal};
  std::tuple<korvel::SMCUserClient&, korvel::IORegistry&, korvel::PowerSources&,
             korvel::PowerAssertions&, korvel::PowerSettings&, korvel::RootPowerDomain&,
             korvel::SmartChargeRuntime&, korvel::WallClock&, korvel::CodeSigning&,
             korvel::UnifiedLog&, HelperHost&>
      answering{process.smc,
                process.registry,
                process.powerSources,
                process.assertions,
                process.powerSettings,
                process.rootDomain,
                process.smartCharge,
                process.clock,
                process.codeSigning,
                log,
                *this};
};

MachineHalf::MachineHalf(Machine& machine, HelperProcess& process, Journal& journal,
                         DiskWatch& disk)
    : parts(std::make_unique<Parts>(machine, process, journal, disk)) {}

MachineHalf::~MachineHalf() = default;

void MachineHalf::setTimeSource(std::function<MachineTime()> source) {
  parts->timeSource = std::move(source);
}

void MachineHalf::setPowerHandler(PowerManagement::Deliver handler) {
  parts->process.rootDomain.setMessageHandler(std::move(handler));
}

std::optional<SeamCall> MachineHalf::seamCall(CallNumber number, std::string_view arguments) {
  if (number < seamCallCount) return static_cast<SeamCall>(number);
  if (number != callNumber(HostCall::announceFileCall)) return std::nullopt;
  WireReader reader(arguments);
  SeamCall announced{};
  get(reader, announced);
  return reader.failed() ? std::nullopt : std::optional(announced);
}

double MachineHalf::latencySeconds(CallNumber number, std::string_view arguments) const {
  const auto call = seamCall(number, arguments);
  return call ? parts->machine.latencySeconds(*call) : 0;
}

bool MachineHalf::givingBackTakesTime() const { return parts->machine.givingBackTakesTime(); }

void MachineHalf::serve(CallNumber number, WireReader& arguments, WireWriter& result) {
  switch (number) {
#define SEAM_CALL(id, interface, method, kind) \
  case callNumber(SeamCall::id):               \
    return parts->serve(&korvel::interface::method, arguments, result);
#include "VirtualMac/Schedule/Calls.def"
#undef SEAM_CALL
#define SEAM_CALL(id, interface, method, kind) \
  case callNumber(HostCall::id):               \
    return parts->serve(&interface::method, arguments, result);
#include "VirtualMac/Remote/HostCalls.def"
#undef SEAM_CALL
    default:
      arguments.fail("no call has this number");
  }
}

}  // namespace virtualmac
