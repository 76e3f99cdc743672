#include "VirtualMac/Remote/MachineHalf.h"

#include <cerrno>
#include <limits>
#include <system_error>
#include <type_traits>
#include <utility>

#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Machine/Requirement.h"
#include "VirtualMac/Remote/DiskWatch.h"
#include "VirtualMac/Remote/RemoteInterface.h"

namespace virtualmac {

using korvel::ConnectionRef;
using korvel::HandleRef;
using korvel::KernReturn;
using korvel::ObjectRef;
using korvel::PropertyValue;

namespace {

std::string_view levelName(korvel::LogLevel level) {
  switch (level) {
    case korvel::LogLevel::Default:
      return "default";
    case korvel::LogLevel::Error:
      return "error";
    case korvel::LogLevel::Fault:
      return "fault";
  }
  return "default";
}

/// The process's own calls under the names that the seam has for them.
struct AssertionCalls {
  HelperProcess& process;
  KernReturn createWithProperties(const PropertyValue& properties, std::uint32_t& id) const {
    return process.createAssertion(properties, id);
  }
  KernReturn release(std::uint32_t id) const { return process.releaseAssertion(id); }
};

/// The callback and its context stay in the helper; the rest are the client's own calls.
struct RootDomainCalls {
  RootDomainClient& client;
  ConnectionRef registerForSystemPower(void*, HandleRef& port, korvel::InterestCallback,
                                       ObjectRef& notifier) const {
    return client.registerForSystemPower(port, notifier);
  }
  HandleRef notificationPortGetRunLoopSource(HandleRef port) const {
    return client.notificationPortGetRunLoopSource(port);
  }
  HandleRef mainRunLoop() const { return client.mainRunLoop(); }
  void runLoopAddSource(HandleRef loop, HandleRef source) const {
    client.runLoopAddSource(loop, source);
  }
  void runLoopRemoveSource(HandleRef loop, HandleRef source) const {
    client.runLoopRemoveSource(loop, source);
  }
  KernReturn allowPowerChange(ConnectionRef rootPort, std::intptr_t notificationID) const {
    return client.allowPowerChange(rootPort, notificationID);
  }
  KernReturn deregisterForSystemPower(ObjectRef& notifier) const {
    return client.deregisterForSystemPower(notifier);
  }
  KernReturn serviceClose(ConnectionRef rootPort) const { return client.serviceClose(rootPort); }
  void notificationPortDestroy(HandleRef port) const { client.notificationPortDestroy(port); }
};

struct ClockCalls {
  Machine& machine;
  korvel::Date now() const { return machine.wallClock(); }
};

struct LogCalls {
  Journal& journal;
  void emit(std::string_view, std::string_view category, korvel::LogLevel level,
            std::string_view text) const {
    journal.record("log", std::string(category) + ' ' + std::string(levelName(level)) + " \"" +
                              std::string(text) + '"');
  }
};

/// What the machine's faults have in store for a file call that is made elsewhere.
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
  void journal(std::string_view kind, std::string_view text) override {
    machineJournal.record(kind, std::string(text));
  }
  std::optional<std::string> bundleExecutablePath() override {
    return process.bundleExecutablePath();
  }
  PropertyValue bundleInfo(std::string_view key) override { return process.bundleInfo(key); }
  MachineTime time() override { return timeSource(); }
  std::optional<ConnectionBreak> connectionsBreak() override { return machine.connectionsBreak; }

  /// Makes one line's call on whoever answers its interface.
  template <class Interface, class Method, class Make>
  void serve(Method method, const Make& make, WireReader& arguments, WireWriter& result) {
    if constexpr (std::is_same_v<Interface, korvel::FileSystem>) {
      arguments.fail("file calls are made in the helper's own process");
    } else {
      auto&& answering = target(std::type_identity<Interface>{});
      serveCall(
          method, [&](auto&... given) -> decltype(auto) { return make(answering, given...); },
          arguments, result);
    }
  }

  // Who answers the calls of an interface.
  SMCClient& target(std::type_identity<korvel::SMCUserClient>) { return process.smc; }
  RegistryClient& target(std::type_identity<korvel::IORegistry>) { return process.registry; }
  PowerSourcesClient& target(std::type_identity<korvel::PowerSources>) {
    return process.powerSources;
  }
  AssertionCalls target(std::type_identity<korvel::PowerAssertions>) { return {process}; }
  HelperProcess& target(std::type_identity<korvel::PowerSettings>) { return process; }
  RootDomainCalls target(std::type_identity<korvel::RootPowerDomain>) {
    return {process.rootDomain};
  }
  SmartChargeClient& target(std::type_identity<korvel::SmartChargeRuntime>) {
    return process.smartCharge;
  }
  ClockCalls target(std::type_identity<korvel::WallClock>) { return {machine}; }
  LogCalls target(std::type_identity<korvel::UnifiedLog>) { return {machineJournal}; }
  CodeSigningClient& target(std::type_identity<korvel::CodeSigning>) { return process.codeSigning; }
  HelperHost& target(std::type_identity<HelperHost>) { return *this; }

  Machine& machine;
  HelperProcess& process;
  Journal& machineJournal;
  DiskWatch& disk;
  std::function<MachineTime()> timeSource;
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

double MachineHalf::latencySeconds(CallNumber number, std::string_view arguments) const {
  if (number < seamCallCount) return parts->machine.latencySeconds(static_cast<SeamCall>(number));
  if (static_cast<RemoteCall>(number) != RemoteCall::hostAnnounceFileCall) return 0;
  WireReader reader(arguments);
  SeamCall announced{};
  get(reader, announced);
  return reader.failed() ? 0 : parts->machine.latencySeconds(announced);
}

void MachineHalf::serve(CallNumber number, WireReader& arguments, WireWriter& result) {
  switch (static_cast<RemoteCall>(number)) {
#define SEAM_CALL(id, interface, method, kind)                  \
  case RemoteCall::id:                                          \
    return parts->serve<remotecalls::interface>(                \
        &remotecalls::interface::method,                        \
        [](auto& answering, auto&... given) -> decltype(auto) { \
          return answering.method(given...);                    \
        },                                                      \
        arguments, result);
#include "VirtualMac/Schedule/Calls.def"
// The host's calls follow the seam's.
#include "VirtualMac/Remote/HostCalls.def"
#undef SEAM_CALL
  }
  arguments.fail("no call has this number");
}

}  // namespace virtualmac
