#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Platform.h"
#include "Platform/Process.h"
#include "Platform/UnifiedLog.h"
#include "VirtualMac/InProcess/BatonGate.h"
#include "VirtualMac/InProcess/Gated.h"
#include "VirtualMac/InProcess/InProcessXPC.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/PowerCallbacks.h"
#include "VirtualMac/Schedule/VirtualDispatch.h"

namespace virtualmac {

class HostedProcess;

/// The surroundings of a hosted process, which outlive it.
struct HostSurroundings {
  Machine& machine;
  Scheduler& scheduler;
  FaultTable& faults;
  Journal& journal;
  ServiceEndpoint& endpoint;
  const ScheduleObservers& observers;
  std::function<void(std::string)> reportViolation;
  std::function<void(korvel::LogLevel, std::string_view category, std::string_view text)> log;
  std::function<void(HostedProcess&)> gone;  ///< Told when it has ended and unwound.
};

/// One helper process in this process: its threads, and its seam over the machine. Tests may use
/// the seam after the end; the machine answers nothing then.
class HostedProcess final {
 public:
  HostedProcess(HostSurroundings surroundings, std::int32_t pid);

  [[nodiscard]] korvel::Platform& platform() { return seam; }
  [[nodiscard]] ThreadGroup& threads() { return group; }
  [[nodiscard]] VirtualDispatch& dispatching() { return dispatch; }
  [[nodiscard]] Lane& mainThread() { return *main; }
  [[nodiscard]] HelperProcess& model() { return *process; }
  [[nodiscard]] bool alive() const { return group.alive(); }
  /// How it ended; both absent while it runs.
  [[nodiscard]] const ProcessEnd& endedBy() const { return how; }

  /// Ends the process now. A caller on one of its threads must unwind by itself.
  void end(ProcessEnd by);
  /// Starts another thread, which runs `body`.
  void startThread(std::string name, korvel::Task body);

 private:
  class Log final : public korvel::UnifiedLog {
   public:
    explicit Log(HostedProcess& owner) : host(owner) {}
    void emit(std::string_view subsystem, std::string_view category, korvel::LogLevel level,
              std::string_view text) override;

   private:
    HostedProcess& host;
  };
  class Self final : public korvel::Process {
   public:
    explicit Self(HostedProcess& owner) : host(owner) {}
    std::int32_t getpid() override;
    [[noreturn]] void exit(int status) override;
    std::optional<std::string> bundleExecutablePath() override;
    korvel::PropertyValue bundleInfo(std::string_view key) override;

   private:
    HostedProcess& host;
  };

  void afterEnd();

  HostSurroundings around;
  ProcessEnd how;
  ThreadGroup group;
  std::shared_ptr<Lane> main;
  std::shared_ptr<HelperProcess> process;
  VirtualDispatch dispatch;
  BatonGate gate;
  Log machineLog;
  Gated<korvel::SMCUserClient> smc;
  Gated<korvel::IORegistry> registry;
  Gated<korvel::PowerSources> powerSources;
  Gated<korvel::PowerAssertions> assertions;
  Gated<korvel::PowerSettings> powerSettings;
  PowerCallbacks<Gated<korvel::RootPowerDomain>> rootDomain;
  Gated<korvel::SmartChargeRuntime> smartCharge;
  Gated<korvel::FileSystem> files;
  Gated<korvel::CodeSigning> codeSigning;
  Gated<korvel::WallClock> clock;
  Gated<korvel::UnifiedLog> log;
  InProcessXPC xpc;
  Self self;
  korvel::Platform seam;
};

}  // namespace virtualmac
