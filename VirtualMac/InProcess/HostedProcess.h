#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Platform.h"
#include "Platform/Process.h"
#include "Platform/UnifiedLog.h"
#include "Platform/WallClock.h"
#include "VirtualMac/InProcess/BatonGate.h"
#include "VirtualMac/InProcess/GatedHardware.h"
#include "VirtualMac/InProcess/GatedPower.h"
#include "VirtualMac/InProcess/GatedSystem.h"
#include "VirtualMac/InProcess/InProcessXPC.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/VirtualDispatch.h"

namespace virtualmac {

class HostedProcess;

/// What a hosted process stands on.
struct HostSurroundings {
  Machine& machine;
  Scheduler& scheduler;
  FaultTable& faults;
  Journal& journal;
  ServiceEndpoint& endpoint;
  const ScheduleObservers& observers;
  std::function<void(std::string)> reportViolation;
  std::function<void(korvel::LogLevel, std::string_view category, std::string_view text)> log;
  std::function<void(HostedProcess&)> gone;  ///< Ended and unwound.
};

/// One helper process in this process: its threads, and its seam over the machine. The seam stays
/// valid after the end, for objects that a test still holds; the machine answers nothing then.
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

  /// The process ends here and now. A caller on one of its threads unwinds by itself.
  void end(ProcessEnd by);
  /// Adds a further thread, busy with `body`.
  void startThread(std::string name, korvel::Task body);

 private:
  class Clock final : public korvel::WallClock {
   public:
    explicit Clock(HostedProcess& owner) : host(owner) {}
    korvel::Date now() override;

   private:
    HostedProcess& host;
  };
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
  GatedSMCUserClient smc;
  GatedIORegistry registry;
  GatedPowerSources powerSources;
  GatedPowerAssertions assertions;
  GatedPowerSettings powerSettings;
  GatedRootPowerDomain rootDomain;
  GatedSmartChargeRuntime smartCharge;
  GatedFileSystem files;
  GatedCodeSigning codeSigning;
  Clock clock;
  Log log;
  InProcessXPC xpc;
  Self self;
  korvel::Platform seam;
};

}  // namespace virtualmac
