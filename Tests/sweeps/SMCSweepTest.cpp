#include <algorithm>
#include <array>

#include "Platform/KernelTypes.h"
#include "Tests/sweeps/Converge.h"
#include "Tests/sweeps/StoryTest.h"
#include "Tests/sweeps/StoryTools.h"

namespace sweeps {

namespace {

using virtualmac::FaultTable;
using virtualmac::InjectedFault;
using virtualmac::SeamCall;

/// An operation of the protocol that touches the SMC, and the machine's profile. The operation
/// includes its first enforcement tick.
struct Operation {
  std::string name;
  std::string_view profile;
  void (*prepare)(Stage&);
  virtualmac::AppCallRef (*start)(Stage&);
};

void limited(Stage& stage) { beginWithLimit(stage, 80); }
void discharging(Stage& stage) { beginDischarge(stage, 80); }

std::vector<Operation> operations() {
  std::vector<Operation> all;
  struct Family {
    std::string suffix;
    std::string_view profile;
  };
  for (const Family& family :
       {Family{"NewerKeys", newerKeysProfile}, Family{"OlderPair", olderPairProfile}}) {
    const auto add = [&](const std::string& name, auto prepare, auto start) {
      all.push_back({name + family.suffix, family.profile, prepare, start});
    };
    add(
        "pause", [](Stage& stage) { stage.join(); },
        [](Stage& stage) { return stage.app().setChargeLimit(80); });
    add("resume", limited, [](Stage& stage) { return stage.app().setChargeLimit(99); });
    add("handBack", limited, [](Stage& stage) { return stage.app().setChargeLimit(100); });
    add("clear", limited, [](Stage& stage) { return stage.app().clearChargeLimit(); });
    add("clearDischarge", discharging, [](Stage& stage) { return stage.app().clearChargeLimit(); });
    add("startDischarge", limited, [](Stage& stage) { return stage.app().forceDischarge(true); });
    add("stopDischarge", discharging,
        [](Stage& stage) { return stage.app().forceDischarge(false); });
    add("topOff", discharging,
        [](Stage& stage) { return stage.app().releaseLimitUntilFullThenRestore(); });
    add("reset", discharging, [](Stage& stage) { return stage.app().resetAllSMCKeys(); });
  }
  return all;
}

Story storyOf(const Operation& operation) {
  return {operation.name, std::string(operation.profile), batteryAt(85), {}};
}

/// Records the SMC calls in order: C a struct call, F a struct call with an injected failure, O an
/// open, X a close.
class SMCTrail {
 public:
  explicit SMCTrail(virtualmac::World& observed) : world(observed) {
    world.faults().observe([this](SeamCall call) {
      settle();
      if (call == SeamCall::smcCallStruct) trail += 'C';
      if (call == SeamCall::smcOpen) trail += 'O';
      if (call == SeamCall::smcClose) trail += 'X';
      injected = world.faults().injected();
    });
  }
  ~SMCTrail() { world.faults().observe({}); }
  SMCTrail(const SMCTrail&) = delete;
  SMCTrail& operator=(const SMCTrail&) = delete;

  [[nodiscard]] std::string text() {
    settle();
    return trail;
  }
  [[nodiscard]] std::uint64_t count(char what) {
    return static_cast<std::uint64_t>(std::ranges::count(text(), what));
  }

 private:
  /// The fault table decides after the call is observed, so its failure shows only later.
  void settle() {
    if (!trail.empty() && trail.back() == 'C' && world.faults().injected() > injected) {
      trail.back() = 'F';
    }
    injected = world.faults().injected();
  }

  virtualmac::World& world;
  std::string trail;
  std::uint64_t injected = 0;
};

void prepare(Stage& stage, const Operation& operation) {
  stage.world.startHelper();
  stage.run(0.1);
  operation.prepare(stage);
  stage.run(0.5);
}

void perform(Stage& stage, const Operation& operation, Findings& findings) {
  const auto call = operation.start(stage);
  stage.ask(call);
  stage.run(0.1);
  findings.expect(call->answered, "no reply");
  const auto code = call->errorCode();
  findings.expect(call->success ? code == 0 : code == 500 || code == 503,
                  "the reply's code is " + std::to_string(code));
}

/// Counts the struct calls of the undisturbed operation.
std::uint64_t structCalls(const Operation& operation) {
  Stage stage(storyOf(operation));
  prepare(stage, operation);
  SMCTrail trail(stage.world);
  Findings findings;
  perform(stage, operation, findings);
  EXPECT_TRUE(findings.empty()) << findings.text();
  EXPECT_EQ(trail.count('O'), 0U);
  return trail.count('C');
}

/// Checks that only a stale answer causes a reopen: one per answer, followed by at most one more
/// try of the same call.
void checkOneRetry(Findings& findings, const std::string& trail, bool reopenWorks) {
  std::string problem;
  for (std::size_t i = 0; i < trail.size(); ++i) {
    if (trail[i] == 'O' && (i == 0 || trail[i - 1] != 'X')) {
      // After a failed reopen there is no connection to close before the next try.
      if (reopenWorks) problem = "a reopen without a close";
    }
    if (trail[i] == 'X' && (i == 0 || trail[i - 1] != 'F')) problem = "a reopen without a cause";
  }
  // F X O F is one operation that stayed stale; its second F must not cause another reopen.
  std::size_t staleInOne = 0;
  for (const char each : trail) {
    if (each == 'F') ++staleInOne;
    if (each == 'C') staleInOne = 0;
  }
  findings.expect(problem.empty(), problem + " in " + trail);
  const auto opens = std::ranges::count(trail, 'O');
  const auto failures = std::ranges::count(trail, 'F');
  if (reopenWorks) {
    findings.expect(opens <= failures, "more reopens than stale answers in " + trail);
    findings.expect(staleInOne == 0 || failures <= 2 * opens + 1,
                    "more than one retry in " + trail);
  }
}

class SMCSweep : public testing::TestWithParam<Operation> {
 protected:
  /// Runs the operation once per struct call, and disturbs that call.
  void sweepCalls(const std::string& fault,
                  const std::function<void(FaultTable&, std::uint64_t)>& disturb,
                  const std::function<void(Findings&, SMCTrail&, std::uint64_t)>& check) {
    const Operation& operation = GetParam();
    const std::uint64_t calls = structCalls(operation);
    ASSERT_GT(calls, 0U);
    const Story story = storyOf(operation);
    Sweep sweep(story, "*SMCSweep.*");
    for (const std::uint64_t n : chosenCalls(calls, calls)) {
      sweep.run({n, fault}, [&](Stage& stage, Findings& findings) {
        prepare(stage, operation);
        {
          SMCTrail trail(stage.world);
          disturb(stage.world.faults(), n);
          perform(stage, operation, findings);
          check(findings, trail, calls);
        }
        stage.world.faults().clear();
        converge(stage, findings, {});
      });
    }
  }
};

TEST_P(SMCSweep, ReopensOnceAndRepeatsTheCallWhenTheConnectionIsStaleOnce) {
  for (const korvel::KernReturn code : {korvel::ioReturnNotOpen, korvel::ioReturnNoDevice}) {
    sweepCalls(
        code == korvel::ioReturnNotOpen ? "not-open" : "no-device",
        [code](FaultTable& faults, std::uint64_t n) {
          faults.failNth(SeamCall::smcCallStruct, n, InjectedFault{code, {}});
        },
        [](Findings& findings, SMCTrail& trail, std::uint64_t calls) {
          findings.expect(trail.text().find("FXOC") != std::string::npos,
                          "no reopen and repetition in " + trail.text());
          findings.expect(trail.count('O') == 1, "not one reopen in " + trail.text());
          // The call is repeated, and so are at most six key infos that the reopen forgot.
          findings.expect(trail.count('C') <= calls + 6, "too many calls in " + trail.text());
        });
  }
}

TEST_P(SMCSweep, ReopensOnceAnOperationWhileTheConnectionStaysStale) {
  sweepCalls(
      "stale",
      [](FaultTable& faults, std::uint64_t n) {
        faults.failFrom(SeamCall::smcCallStruct, n, InjectedFault{korvel::ioReturnNotOpen, {}});
      },
      [](Findings& findings, SMCTrail& trail, std::uint64_t) {
        checkOneRetry(findings, trail.text(), true);
        // From there on every operation is one call, one reopen and one more call.
        findings.expect(trail.count('F') == 2 * trail.count('O'),
                        "not two calls a reopen in " + trail.text());
      });
}

TEST_P(SMCSweep, GoesOnWithoutAConnectionWhenItCannotBeReopened) {
  sweepCalls(
      "no-reopen",
      [](FaultTable& faults, std::uint64_t n) {
        faults.failFrom(SeamCall::smcCallStruct, n, InjectedFault{korvel::ioReturnNotOpen, {}});
        faults.failAlways(SeamCall::smcOpen, InjectedFault{korvel::ioReturnNotPrivileged, {}});
      },
      [](Findings& findings, SMCTrail& trail, std::uint64_t) {
        checkOneRetry(findings, trail.text(), false);
        findings.expect(trail.count('F') == 1, "calls without a connection in " + trail.text());
      });
}

TEST_P(SMCSweep, ReportsAnyOtherRefusalWithoutReopening) {
  for (const bool lasting : {false, true}) {
    sweepCalls(
        lasting ? "refused:forever" : "refused:once",
        [lasting](FaultTable& faults, std::uint64_t n) {
          faults.failFrom(SeamCall::smcCallStruct, n,
                          InjectedFault{korvel::ioReturnNotPrivileged, {}},
                          lasting ? FaultTable::forever : 1);
        },
        [](Findings& findings, SMCTrail& trail, std::uint64_t calls) {
          findings.expect(trail.count('O') == 0, "a reopen in " + trail.text());
          // When the first read of a verified write fails, it writes and reads again; an operation
          // has at most two such writes.
          findings.expect(trail.count('C') + trail.count('F') <= calls + 4,
                          "a repetition in " + trail.text());
        });
  }
}

/// One fault of a key itself.
struct KeyTrouble {
  std::string name;
  void (*apply)(virtualmac::SMC::Key&);
};

const std::vector<KeyTrouble>& keyTroubles() {
  using Key = virtualmac::SMC::Key;
  static const std::vector<KeyTrouble> all{
      {"key-not-found", [](Key& key) { key.result = virtualmac::smcResultKeyNotFound; }},
      {"result-1", [](Key& key) { key.result = std::uint8_t{1}; }},
      {"bad-command", [](Key& key) { key.result = virtualmac::smcResultBadCommand; }},
      {"write-key-not-found", [](Key& key) { key.writeResult = virtualmac::smcResultKeyNotFound; }},
      {"write-result-1", [](Key& key) { key.writeResult = std::uint8_t{1}; }},
      {"write-bad-command", [](Key& key) { key.writeResult = virtualmac::smcResultBadCommand; }},
      {"silently-refused", [](Key& key) { key.silentlyRefuses = true; }},
      {"stated-size-0", [](Key& key) { key.statedSize = 0; }},
      {"stated-size-40", [](Key& key) { key.statedSize = 40; }},
      {"trailing-junk", [](Key& key) { key.trailingJunk = {7}; }},
  };
  return all;
}

void healKey(virtualmac::SMC::Key& key) {
  key.result.reset();
  key.writeResult.reset();
  key.silentlyRefuses = false;
  key.statedSize.reset();
  key.trailingJunk.clear();
}

TEST_P(SMCSweep, ComesThroughAnythingThatAKeyDoes) {
  const Operation& operation = GetParam();
  const Story story = storyOf(operation);
  Sweep sweep(story, "*SMCSweep.*");
  for (const std::string_view key : {"CHTE", "CH0B", "CH0C", "CHIE", "CH0I", "CH0J"}) {
    for (const KeyTrouble& trouble : keyTroubles()) {
      sweep.run({0, std::string(key) + ":" + trouble.name}, [&](Stage& stage, Findings& findings) {
        prepare(stage, operation);
        virtualmac::SMC::Key* troubled = stage.mac().smc.key(key);
        if (troubled == nullptr) return;
        trouble.apply(*troubled);
        SMCTrail trail(stage.world);
        perform(stage, operation, findings);
        stage.run(11);
        findings.expect(trail.count('O') == 0, "a reopen in " + trail.text());
        healKey(*troubled);
        converge(stage, findings, {});
      });
    }
  }
}

std::string operationName(const testing::TestParamInfo<Operation>& info) { return info.param.name; }
void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

INSTANTIATE_TEST_SUITE_P(Operations, SMCSweep, testing::ValuesIn(operations()), operationName);

}  // namespace

}  // namespace sweeps
