#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tests/swarm/SwarmPlan.h"
#include "Tests/sweeps/Checks.h"
#include "Tests/sweeps/Converge.h"
#include "Tests/sweeps/Stage.h"
#include "VirtualMac/Schedule/FaultTable.h"
#include "VirtualMac/Schedule/Random.h"

namespace swarm {

/// One run: a world in which anything of the plan may happen at any moment, and which then heals.
class Swarm {
 public:
  explicit Swarm(const SwarmPlan& given);
  Swarm(const Swarm&) = delete;
  Swarm& operator=(const Swarm&) = delete;

  /// Plays deeds and faults with time between them, and checks after every step the rules that hold
  /// even then.
  void rage(sweeps::Findings& findings);
  /// Ends every fault and connects a client; then everything has to become right.
  void healAndConverge(sweeps::Findings& findings);

  [[nodiscard]] std::uint64_t hash() { return stage.world.journal().hash(); }
  [[nodiscard]] std::string journalTail();

  // For deeds
  virtualmac::World& world() { return stage.world; }
  virtualmac::Machine& mac() { return stage.mac(); }
  /// Returns one of the connected clients, or null when there is none.
  virtualmac::AppClient* someClient();
  void connect(std::string_view identity);
  /// Connects a client that leaves before its connection can have been seen.
  void comeAndGo();
  void forgetClient(const virtualmac::AppClient& client);

  virtualmac::Random random;

 private:
  void step();
  void letTimePass();
  void toggleMachineFault();
  void toggleCallFault();
  void checkStep(sweeps::Findings& findings);
  [[nodiscard]] sweeps::Excuses excuses() const;

  SwarmPlan plan;
  sweeps::Story story;
  sweeps::Stage stage;
  std::vector<std::string> faultsOn;
  std::vector<std::pair<std::string, virtualmac::FaultTable::RuleId>> rules;
};

}  // namespace swarm
