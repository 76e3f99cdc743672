#include "VirtualMac/InProcess/HostedProcess.h"

#include <csignal>
#include <utility>

#include "KorvelHelperProtocol.h"

namespace virtualmac {

HostedProcess::HostedProcess(HostSurroundings surroundings, std::int32_t pid)
    : around(std::move(surroundings)),
      group("helper " + std::to_string(pid), [this] { afterEnd(); }),
      main(std::make_shared<Lane>(around.scheduler, "main", &group)),
      process(around.machine.startProcess(pid)),
      dispatch(around.scheduler, group, main, around.observers),
      gate(around.scheduler, group, around.faults, around.machine, around.observers,
           [this] { end(ProcessEnd{std::nullopt, SIGKILL}); }),
      smc(gate, *process),
      registry(gate, *process),
      powerSources(gate, *process),
      assertions(gate, *process),
      powerSettings(gate, *process),
      rootDomain(gate, *process,
                 [this](korvel::Task work) { dispatch.postToMain(std::move(work)); }),
      smartCharge(gate, *process),
      files(gate, *process),
      codeSigning(gate, *process),
      clock(*this),
      log(*this),
      xpc(XPCSurroundings{around.scheduler, group, around.endpoint, around.machine.signatures,
                          around.journal, around.reportViolation,
                          korvel::KorvelHelperMachServiceName, around.observers,
                          around.machine.connectionsBreak}),
      self(*this),
      seam{smc,   registry, powerSources, assertions, powerSettings, rootDomain, smartCharge,
           files, dispatch, clock,        log,        codeSigning,   xpc,        self} {}

void HostedProcess::end(ProcessEnd by) {
  if (!group.alive()) return;
  how = by;
  // The machine forgets the process first: whatever unwinds from here on finds nothing there.
  around.machine.endProcess(process->pid(), by);
  around.scheduler.end(group);
}

void HostedProcess::startThread(std::string name, korvel::Task body) {
  const auto lane = std::make_shared<Lane>(around.scheduler, std::move(name), &group);
  around.scheduler.post(*lane, std::move(body));
}

void HostedProcess::afterEnd() {
  xpc.processGone();
  around.gone(*this);
}

korvel::Date HostedProcess::Clock::now() {
  host.gate.enter(SeamCall::clockNow);
  return host.around.machine.wallClock();
}

void HostedProcess::Log::emit(std::string_view /*subsystem*/, std::string_view category,
                              korvel::LogLevel level, std::string_view text) {
  if (host.gate.enter(SeamCall::logEmit)) return;
  host.around.log(level, category, text);
}

std::int32_t HostedProcess::Self::getpid() { return host.process->pid(); }

void HostedProcess::Self::exit(int status) {
  host.around.scheduler.requireAlive(&host.group);
  host.end(ProcessEnd{status, std::nullopt});
  throw ProcessEnded{};
}

std::optional<std::string> HostedProcess::Self::bundleExecutablePath() {
  return host.process->bundleExecutablePath();
}

korvel::PropertyValue HostedProcess::Self::bundleInfo(std::string_view key) {
  return host.process->bundleInfo(key);
}

}  // namespace virtualmac
