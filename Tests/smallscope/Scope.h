#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "HelperRecords.h"
#include "Tests/smallscope/Stimuli.h"
#include "Tests/sweeps/Checks.h"
#include "Tests/sweeps/Converge.h"
#include "Tests/sweeps/Stage.h"

namespace smallscope {

/// A sequence of stimuli on one kind of machine, and perhaps a kill -9 in its last step.
struct Case {
  std::string profile;
  Sequence sequence;
  std::uint64_t killAt = 0;  ///< In place of this platform call of the last step; 0: no kill.
};

/// One run: a machine with a battery at 85 %, on its adapter, whose helper serves one client. The
/// stimuli happen to it; then its faults end, and it has to come right.
class Scope {
 public:
  explicit Scope(const Case& given);
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

  /// Plays the sequence. After every step the rules that hold at any moment are checked.
  void play(sweeps::Findings& findings);
  /// Judges what the sequence, or the kill, made of the machine.
  void judge(sweeps::Findings& findings);

  /// The platform calls of the last step.
  [[nodiscard]] std::uint64_t lastCalls() const { return callsOfLastStep; }
  /// A mistake to plant: it runs before the judgement.
  std::function<void(virtualmac::Machine&)> spoil;
  [[nodiscard]] std::string journal();

  // For stimuli
  virtualmac::World& world() { return stage.world; }
  virtualmac::Machine& mac() { return stage.mac(); }
  /// Returns the client that came last, or a new one when all have left.
  virtualmac::AppClient& client();
  /// Every client leaves.
  void leave();
  /// Puts a fault of the machine's catalogue on, or ends it.
  void toggle(std::string_view fault);

 private:
  void step(const Stimulus& stimulus, sweeps::Findings& findings);
  void killInLastStep(const Stimulus& stimulus, sweeps::Findings& findings);
  [[nodiscard]] bool has(std::string_view stimulus) const;
  [[nodiscard]] bool hasEnd() const;
  [[nodiscard]] sweeps::Excuses excuses() const;
  /// A run that ends while nothing can be recorded leaves what the next one does not know of.
  [[nodiscard]] bool forgets() const;
  void endFaults(sweeps::Findings& findings);
  void stopRestarts();
  void judgeRecovery(sweeps::Findings& findings);
  void judgeState(sweeps::Findings& findings);
  void checkRecord(sweeps::Findings& findings, const korvel::HelperState& told);
  void judgeDeparture(sweeps::Findings& findings);

  const Case& subject;
  sweeps::Story story;
  sweeps::Stage stage;
  std::vector<std::string> faultsOn;
  std::uint64_t callsOfLastStep = 0;
};

/// The outcome of a case.
struct Outcome {
  std::string findings;  ///< One a line; empty: it came right.
  std::string report;    ///< With findings: the case, the journal, and the command for it alone.
  std::uint64_t lastCalls = 0;
};
/// Plays and judges a case. The mistake, if any, is planted before the judgement.
Outcome run(const Case& subject, const std::function<void(virtualmac::Machine&)>& mistake = {});

/// Returns a profile's name as test names can have it.
std::string testNameOf(std::string_view profile);

}  // namespace smallscope
