#include "VirtualMac/Remote/RemotePlatform.h"

#include <unistd.h>

#include <cstdio>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

#include "Platform/Process.h"
#include "VirtualMac/Remote/LocalFileSystem.h"
#include "VirtualMac/Remote/MachineClock.h"
#include "VirtualMac/Remote/ProcessDispatch.h"
#include "VirtualMac/Remote/RemoteInterface.h"
#include "VirtualMac/Remote/ServiceListener.h"

namespace virtualmac {

using korvel::ConnectionRef;
using korvel::HandleRef;
using korvel::ObjectRef;
using korvel::PropertyValue;

namespace {

/// Callbacks stay in this process; the machine sends what they are to be called with.
using RootDomainCalls = RemoteInterface<korvel::RootPowerDomain>;
class RemoteRootDomain final : public RootDomainCalls {
 public:
  using RootDomainCalls::RootDomainCalls;

  ConnectionRef registerForSystemPower(void* refcon, HandleRef& port,
                                       korvel::InterestCallback callback,
                                       ObjectRef& notifier) override {
    const std::lock_guard lock(mutex);
    const ConnectionRef root =
        RootDomainCalls::registerForSystemPower(refcon, port, callback, notifier);
    if (root != 0) callbacks.insert_or_assign(notifier, Callback{callback, refcon});
    return root;
  }

  korvel::KernReturn deregisterForSystemPower(ObjectRef& notifier) override {
    const std::lock_guard lock(mutex);
    callbacks.erase(notifier);
    return RootDomainCalls::deregisterForSystemPower(notifier);
  }

  /// On the main thread.
  void deliver(ObjectRef notifier, std::uint32_t messageType, std::uintptr_t argument) {
    Callback found{};
    {
      const std::lock_guard lock(mutex);
      const auto known = callbacks.find(notifier);
      if (known == callbacks.end()) return;
      found = known->second;
    }
    found.function(found.refcon, 0, messageType, argument);
  }

 private:
  struct Callback {
    korvel::InterestCallback function = nullptr;
    void* refcon = nullptr;
  };
  std::mutex mutex;
  std::map<ObjectRef, Callback> callbacks;
};

class RemoteLog final : public korvel::UnifiedLog {
 public:
  RemoteLog(MachineChannel& machineChannel, bool alsoToStandardError)
      : channel(machineChannel), verbose(alsoToStandardError) {}

  void emit(std::string_view subsystem, std::string_view category, korvel::LogLevel level,
            std::string_view text) override {
    channel.tell(static_cast<CallNumber>(RemoteCall::logEmit), subsystem, category, level, text);
    if (!verbose) return;
    const std::string line = std::string(category) + ": " + std::string(text) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
  }

 private:
  MachineChannel& channel;
  bool verbose;
};

/// Nobody waits for the machine to write a line down.
class RemoteHost final : public RemoteInterface<HelperHost> {
 public:
  using RemoteInterface<HelperHost>::RemoteInterface;

  void journal(std::string_view kind, std::string_view text) override {
    channel.tell(static_cast<CallNumber>(RemoteCall::hostJournal), kind, text);
  }
};

class RealProcess final : public korvel::Process {
 public:
  explicit RealProcess(HelperHost& machineHost) : host(machineHost) {}

  std::int32_t getpid() override { return ::getpid(); }
  // No destructors run: the helper's other threads are still at work.
  [[noreturn]] void exit(int status) override {
    std::fflush(nullptr);
    ::_exit(status);
  }
  std::optional<std::string> bundleExecutablePath() override { return host.bundleExecutablePath(); }
  PropertyValue bundleInfo(std::string_view key) override { return host.bundleInfo(key); }

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
      : channel(options.machineDescriptor),
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
        clock(MachineTime{.frozen = true}),
        dispatch(clock),
        xpc(options.serviceName, options.serviceDescriptor, host) {
    channel.start([this](MachineFrame kind, WireReader& body) { hear(kind, body); },
                  endWithTheMachine);
    clock.setTime(host.time());
  }

  // What the machine sends by itself goes to parts that end before the channel does. Calls go on
  // until it is the channel's turn: the queues may be in the middle of one.
  ~Parts() { channel.stopListening(); }
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;

  void hear(MachineFrame kind, WireReader& body) {
    if (kind == MachineFrame::Clock) {
      MachineTime time;
      get(body, time);
      if (body.finish()) clock.setTime(time);
      return;
    }
    const ObjectRef notifier = body.u32();
    const std::uint32_t messageType = body.u32();
    const auto argument = static_cast<std::uintptr_t>(body.u64());
    if (!body.finish()) return;
    dispatch.postToMain([this, notifier, messageType, argument] {
      rootDomain.deliver(notifier, messageType, argument);
    });
  }

  MachineChannel channel;
  RemoteHost host;
  RemoteRootDomain rootDomain;
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

}  // namespace virtualmac
