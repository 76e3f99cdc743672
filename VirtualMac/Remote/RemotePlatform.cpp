#include "VirtualMac/Remote/RemotePlatform.h"

#include <unistd.h>

#include <cstdio>
#include <string_view>
#include <utility>

#include "Platform/Process.h"
#include "VirtualMac/Remote/EventThread.h"
#include "VirtualMac/Remote/LocalFileSystem.h"
#include "VirtualMac/Remote/MachineClock.h"
#include "VirtualMac/Remote/ProcessDispatch.h"
#include "VirtualMac/Remote/RemoteInterface.h"
#include "VirtualMac/Remote/ServiceListener.h"
#include "VirtualMac/Schedule/PowerCallbacks.h"

namespace virtualmac {

namespace {

class RemoteLog final : public korvel::UnifiedLog {
 public:
  RemoteLog(MachineChannel& machineChannel, bool alsoToStandardError)
      : channel(machineChannel), verbose(alsoToStandardError) {}

  void emit(std::string_view subsystem, std::string_view category, korvel::LogLevel level,
            std::string_view text) override {
    channel.tell(callNumber(SeamCall::logEmit), subsystem, category, level, text);
    if (!verbose) return;
    const std::string line = std::string(category) + ": " + std::string(text) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
  }

 private:
  MachineChannel& channel;
  bool verbose;
};

/// The helper does not wait for what it learns nothing from: the machine has written a journal
/// line, or knows of a file call that gives something back.
class RemoteHost final : public RemoteHostInterface {
 public:
  using RemoteHostInterface::RemoteHostInterface;

  FileVerdict announceFileCall(SeamCall call) override {
    if (!givesBack(call)) return RemoteHostInterface::announceFileCall(call);
    channel.giveBack(callNumber(HostCall::announceFileCall), call);
    return {};
  }
  void journal(const Effect& effect) override {
    channel.tell(callNumber(HostCall::journal), effect);
  }
};

class RealProcess final : public korvel::Process {
 public:
  explicit RealProcess(HelperHost& machineHost) : host(machineHost) {}

  std::int32_t getpid() override { return ::getpid(); }
  // Destructors must not run while the helper's other threads are at work.
  [[noreturn]] void exit(int status) override {
    std::fflush(nullptr);
    ::_exit(status);
  }
  std::optional<std::string> bundleExecutablePath() override { return host.bundleExecutablePath(); }
  korvel::PropertyValue bundleInfo(std::string_view key) override { return host.bundleInfo(key); }

 private:
  HelperHost& host;
};

[[noreturn]] void endWithTheMachine(const std::string& reason) {
  std::fprintf(stderr, "KorvelHelper: %s\n", reason.c_str());
  ::_exit(RemotePlatform::machineGoneStatus);
}

}  // namespace

struct RemotePlatform::Parts {
  explicit Parts(const LaunchOptions& options)
      : channel(options.machineDescriptor, events),
        host(channel),
        rootDomain(channel),
        log(channel, options.verbose),
        smc(channel),
        registry(channel),
        powerSources(channel),
        assertions(channel),
        powerSettings(channel),
        smartCharge(channel),
        wallClock(channel),
        codeSigning(channel),
        files(options.diskRoot, host),
        process(host),
        clock(MachineTime{.frozen = true}, events),
        dispatch(clock),
        acceptance(options.decisionsMayWait ? std::make_unique<EventThread>() : nullptr),
        xpc(options.serviceName, options.serviceDescriptor, host,
            acceptance ? *acceptance : events) {
    channel.start([this](MachineFrame kind, WireReader& body) { hear(kind, body); },
                  endWithTheMachine);
    clock.setTime(host.time());
  }

  // The threads of events use parts that are destroyed before them. Calls work until the end: the
  // queues may be in the middle of one.
  ~Parts() {
    if (acceptance) acceptance->stop();
    events.stop();
  }
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;

  void hear(MachineFrame kind, WireReader& body) {
    if (kind == MachineFrame::Clock) {
      MachineTime time;
      get(body, time);
      if (body.finish()) clock.setTime(time);
      return;
    }
    const korvel::ObjectRef notifier = body.u32();
    const std::uint32_t messageType = body.u32();
    const auto argument = static_cast<std::uintptr_t>(body.u64());
    if (!body.finish()) return;
    dispatch.postToMain([this, notifier, messageType, argument] {
      rootDomain.deliver(notifier, messageType, argument);
    });
  }

  EventThread events;
  MachineChannel channel;
  RemoteHost host;
  PowerCallbacks<RemoteInterface<korvel::RootPowerDomain>> rootDomain;
  RemoteLog log;
  RemoteInterface<korvel::SMCUserClient> smc;
  RemoteInterface<korvel::IORegistry> registry;
  RemoteInterface<korvel::PowerSources> powerSources;
  RemoteInterface<korvel::PowerAssertions> assertions;
  RemoteInterface<korvel::PowerSettings> powerSettings;
  RemoteInterface<korvel::SmartChargeRuntime> smartCharge;
  RemoteInterface<korvel::WallClock> wallClock;
  RemoteInterface<korvel::CodeSigning> codeSigning;
  LocalFileSystem files;
  RealProcess process;
  MachineClock clock;
  ProcessDispatch dispatch;
  std::unique_ptr<EventThread> acceptance;  ///< Of new clients; none: they come on `events`.
  ServiceListener xpc;
  korvel::Platform platform{.smc = smc,
                            .registry = registry,
                            .powerSources = powerSources,
                            .assertions = assertions,
                            .powerSettings = powerSettings,
                            .rootDomain = rootDomain,
                            .smartCharge = smartCharge,
                            .files = files,
                            .dispatch = dispatch,
                            .clock = wallClock,
                            .log = log,
                            .codeSigning = codeSigning,
                            .xpc = xpc,
                            .process = process};
};

RemotePlatform::RemotePlatform(const LaunchOptions& options)
    : parts(std::make_unique<Parts>(options)) {}

RemotePlatform::~RemotePlatform() = default;

korvel::Platform& RemotePlatform::platform() { return parts->platform; }

ProcessDispatch& RemotePlatform::dispatch() { return parts->dispatch; }

MachineClock& RemotePlatform::clock() { return parts->clock; }

HelperHost& RemotePlatform::host() { return parts->host; }

}  // namespace virtualmac
