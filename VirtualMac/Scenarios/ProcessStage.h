#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Scenarios/Scenario.h"
#include "VirtualMac/Scenarios/Stage.h"
#include "VirtualMac/Server/ClientProcess.h"
#include "VirtualMac/Server/ControlServer.h"
#include "VirtualMac/Server/MachineServer.h"

namespace virtualmac {

/// The helper on a stage of processes.
struct StagedHelper {
  std::string program;
  double slowness = 1;  ///< It takes so many times the real time of one that is not emulated.
};

/// Plays a scenario among real processes: the machine in this one, the helper and the applications
/// in processes of their own, in a temporary directory.
///
/// Virtual time follows real time. It runs fast while nothing is near, and slowly around deeds,
/// expectations and what the helper does, so that the milliseconds of real processes matter little.
/// Expectations get a grace for what they still cost.
class ProcessStage final : public Stage {
 public:
  /// `fastest` is in virtual seconds in a real one. While `stopped` returns true, every wait ends
  /// at once. Throws a std::runtime_error when the machine cannot be started.
  ProcessStage(const Scenario& scenario, const StagedHelper& helper, double fastest,
               std::function<bool()> stopped);
  ~ProcessStage() override;

  Machine& machine() override;
  Journal& journal() override;
  double now() override;
  double graceSeconds() override;
  void runUntil(double moment, const std::function<bool()>& afterEach) override;
  void connect(const std::string& client, const std::string& identity) override;
  void disconnect(const std::string& client) override;
  void killClient(const std::string& client) override;
  void request(const std::string& client, const korvel::Operation& what, std::uint8_t argument,
               std::function<void(Answer)> answered) override;
  std::optional<std::string> reportedState() override;
  void startHelper() override;
  void signalHelper(int number) override;
  bool helperRunning() override;
  std::optional<int> helperExitStatus() override;
  void powerLoss() override;
  void reboot() override;
  std::vector<std::string> violations() override;
  std::optional<std::string> savedState() override;
  void setSavedState(const std::string& content) override;

 private:
  using Clock = std::chrono::steady_clock;
  struct TemporaryDirectory {
    TemporaryDirectory();
    ~TemporaryDirectory();
    std::string path;
  };
  ClientProcess& named(const std::string& client);
  /// Lets handlers run until `reached`, or for as long as a process may take, or until the run is
  /// stopped.
  bool serve(const std::function<bool()>& reached);
  void setSpeed(double speed);
  void hear(const Journal::Entry& entry);
  void killClients();
  [[nodiscard]] std::string statePath() const;

  double slowness;
  double fastSpeed;
  double slowSpeed;
  std::function<bool()> isStopped;
  TemporaryDirectory directory;
  asio::io_context context;
  std::unique_ptr<MachineServer> server;
  std::unique_ptr<ControlServer> control;
  std::map<std::string, std::unique_ptr<ClientProcess>> apps;
  std::optional<int> exitStatus;
  Clock::time_point busyUntil;  ///< Something has just happened, and more may follow.
  std::vector<std::string> broken;
};

}  // namespace virtualmac
