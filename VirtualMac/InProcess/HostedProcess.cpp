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
      machineLog(*this),
      smc(gate, process->smc),
      registry(gate, process->registry),
      powerSources(gate, process->powerSources),
      assertions(gate, process->assertions),
      powerSettings(gate, process->powerSettings),
      rootDomain(gate, process->rootDomain),
      smartCharge(gate, process->smartCharge),
      files(gate, process->files),
      codeSigning(gate, process->codeSigning),
      clock(gate, process->clock),
      log(gate, machineLog),
      xpc(XPCSurroundings{around.scheduler, group, around.endpoint, around.machine.signatures,
                          around.journal, around.reportViolation,
                          korvel::KorvelHelperMachServiceName, around.observers,
                          around.machine.connectionsBreak}),
      self(*this),
      seam{smc,   registry, powerSources, assertions, powerSettings, rootDomain, smartCharge,
           files, dispatch, clock,        log,        codeSigning,   xpc,        self} {
  process->rootDomain.setMessageHandler([this](const PowerMessage& message) {
    dispatch.postToMain([this, message] {
      rootDomain.deliver(message.notifier, message.messageType,
                         static_cast<std::uintptr_t>(message.notificationID));
    });
  });
}

void HostedProcess::end(ProcessEnd by) {
  if (!group.alive()) return;
  how = by;
  // The machine forgets the process first, so that nothing that unwinds finds it there.
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

void HostedProcess::Log::emit(std::string_view /*subsystem*/, std::string_view category,
                              korvel::LogLevel level, std::string_view text) {
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
