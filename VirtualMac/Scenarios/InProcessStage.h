#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Scenarios/Scenario.h"
#include "VirtualMac/Scenarios/Stage.h"

namespace virtualmac {

/// Plays a scenario in this process: in virtual time, as fast as possible, and the same every time.
/// The named rules, which must hold in every run, are watched too.
class InProcessStage final : public Stage {
 public:
  explicit InProcessStage(const Scenario& scenario);
  ~InProcessStage() override;

  Machine& machine() override;
  Journal& journal() override;
  double now() override;
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
  /// Ends the watch over the rules; call it once, at the end.
  std::vector<std::string> violations() override;
  std::optional<std::string> savedState() override;
  void setSavedState(const std::string& content) override;

 private:
  struct Pending {
    AppCallRef call;
    std::function<void(Answer)> answered;
  };
  AppClient& named(const std::string& client);
  void tellAnswers();
  void killClients();

  World bench;
  InvariantSet rules{bench};
  std::map<std::string, std::unique_ptr<AppClient>> apps;
  std::vector<Pending> pending;
};

}  // namespace virtualmac
