#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "HelperPersistence.h"
#include "Tests/sweeps/StoryTest.h"
#include "Tests/sweeps/StoryTools.h"

namespace sweeps {

namespace {

using korvel::HelperPersistence;
using korvel::HelperState;
using virtualmac::InjectedFault;
using virtualmac::SeamCall;

/// The effect of a failed step on the record. The command still replies yes.
struct Outcome {
  bool newOnDisk = false;
  bool memoryReverted = false;
  std::string logged;  ///< How the log line begins; empty: there is none.
};

/// A step of the file protocol; the list has them in the order of a write.
struct Step {
  std::string name;
  SeamCall call{};
  std::uint64_t occurrence = 1;  ///< Counts the calls of this kind within one write.
  std::vector<int> errors;
  Outcome outcome;
};

const std::vector<Step>& steps() {
  const Outcome mkdirFails{false, false, "persistence.write failed: mkdir failed: "};
  const Outcome writeFails{false, false, "persistence.write failed: write failed: "};
  const Outcome renameFails{false, true, "persistence.write failed: atomic rename failed: "};
  const Outcome verifyFails{true, false, "persistence.write failed: read-back verify failed: "};
  const Outcome told{true, false, "fsync parent dir: open("};
  const Outcome ignored{true, false, ""};
  static const std::vector<Step> all{
      {"mkdir", SeamCall::fileMkdir, 1, {EACCES, EROFS, ENOSPC, EIO, ENOTDIR}, mkdirFails},
      {"chmod", SeamCall::fileChmod, 1, {EPERM, EROFS, EIO}, mkdirFails},
      {"unlink", SeamCall::fileUnlink, 1, {EACCES, EROFS, EIO, EBUSY}, writeFails},
      {"unlink-nothing", SeamCall::fileUnlink, 1, {ENOENT}, ignored},
      {"open", SeamCall::fileOpenExclusive, 1, {EEXIST, ENOSPC, EMFILE, EIO, ELOOP}, writeFails},
      {"write", SeamCall::fileWrite, 1, {ENOSPC, EIO, EDQUOT, EBADF}, writeFails},
      {"write-again", SeamCall::fileWrite, 1, {EINTR}, ignored},
      {"fsync", SeamCall::fileFsync, 1, {EIO, ENOSPC, EINTR}, writeFails},
      {"close", SeamCall::fileClose, 1, {EIO, EINTR}, ignored},
      {"replace", SeamCall::fileReplaceItem, 1, {EXDEV, EACCES, EIO}, renameFails},
      {"open-directory", SeamCall::fileOpenReadOnly, 1, {EACCES, EMFILE, EIO}, told},
      {"fsync-directory", SeamCall::fileFsync, 2, {EIO, EINVAL}, ignored},
      {"close-directory", SeamCall::fileClose, 2, {EIO}, ignored},
      {"read-back", SeamCall::fileRead, 1, {EIO, EACCES, ENOENT}, verifyFails},
  };
  return all;
}

/// A command that writes the record exactly once.
struct Command {
  std::string name;
  void (*prepare)(Stage&);
  bool (*perform)(Stage&);
};

const std::vector<Command>& commands() {
  static const std::vector<Command> all{
      {"setChargeLimit", [](Stage& stage) { beginWithLimit(stage, 60); },
       [](Stage& stage) { return stage.setLimit(80); }},
      {"clearChargeLimit", [](Stage& stage) { beginWithLimit(stage, 60); },
       [](Stage& stage) { return stage.ask(stage.app().clearChargeLimit()); }},
      {"startDischarge", [](Stage& stage) { beginWithLimit(stage, 60); },
       [](Stage& stage) { return stage.ask(stage.app().forceDischarge(true)); }},
      {"stopDischarge", [](Stage& stage) { beginDischarge(stage, 60); },
       [](Stage& stage) { return stage.ask(stage.app().forceDischarge(false)); }},
      {"armKeepAwake", [](Stage& stage) { beginWithLimit(stage, 60); },
       [](Stage& stage) { return stage.ask(stage.app().setClamshellKeepAwake(true)); }},
      {"topOff", [](Stage& stage) { beginWithLimit(stage, 60); },
       [](Stage& stage) { return stage.ask(stage.app().releaseLimitUntilFullThenRestore()); }},
      {"reset", [](Stage& stage) { beginWithLimit(stage, 60); },
       [](Stage& stage) { return stage.ask(stage.app().resetAllSMCKeys()); }},
  };
  return all;
}

/// Sets the stage of every command: the newer keys at 90 percent.
const Story& commandStory() {
  static const Story story{"stateFile",
                           std::string(newerKeysProfile),
                           [](virtualmac::Machine& mac) {
                             mac.battery.setPercent(90);
                             mac.disk.makeDirectory(HelperPersistence::directory, 0700);
                           },
                           {}};
  return story;
}

void prepare(Stage& stage, const Command& command) {
  stage.world.startHelper();
  stage.run(0.1);
  command.prepare(stage);
  stage.run(0.1);
  // A command then changes at least the time of the last write.
  stage.run(2);
}

bool hasLogLine(virtualmac::World& world, std::string_view beginning) {
  const auto lines = world.logLines();
  return std::any_of(lines.begin(), lines.end(),
                     [&](const auto& line) { return line.text.starts_with(beginning); });
}

/// Drops the fraction of the record's date, which the file does not keep.
std::optional<HelperState> asFiled(const std::optional<HelperState>& record) {
  if (!record) return std::nullopt;
  auto filed = korvel::decodeStateFile(korvel::encodeFile(*record));
  if (!filed) return std::nullopt;
  return *std::move(filed);
}

class StateFile : public testing::TestWithParam<Command> {};

TEST_P(StateFile, KeepsTheOldOrTheNewRecordWhateverStepFails) {
  const Command& command = GetParam();
  for (const Step& step : steps()) {
    for (const int error : step.errors) {
      const std::string reason = std::system_category().message(error);
      SCOPED_TRACE(step.name + " fails with " + reason);
      Stage stage(commandStory());
      prepare(stage, command);
      const auto before = recordOnDisk(stage.mac());
      stage.world.faults().failNth(step.call, step.occurrence, InjectedFault{error, reason});
      const std::uint64_t struck = stage.world.faults().injected();
      ASSERT_TRUE(command.perform(stage)) << "a failed write must not reach the reply";
      ASSERT_EQ(stage.world.faults().injected(), struck + 1);

      const auto after = recordOnDisk(stage.mac());
      EXPECT_EQ(after != before, step.outcome.newOnDisk);
      const auto memory = asFiled(stage.state());
      if (step.outcome.memoryReverted) {
        EXPECT_EQ(memory, before);
      } else {
        EXPECT_NE(memory, before);
      }
      EXPECT_TRUE(step.outcome.logged.empty() || hasLogLine(stage.world, step.outcome.logged));
      EXPECT_EQ(step.outcome.logged.starts_with("persistence"),
                hasLogLine(stage.world, "persistence.write failed: "));
      EXPECT_FALSE(stage.mac().disk.facts(HelperPersistence::temporaryPath).has_value());
      Findings findings;
      checkStateFile(findings, stage.mac());
      checkIdleProcess(findings, stage.world, step.call != SeamCall::fileClose);
      // The next write succeeds and carries whatever the memory holds.
      findings.expect(stage.setLimit(75), "the next command is refused");
      const auto next = recordOnDisk(stage.mac());
      findings.expect(next && next->chargeLimit == 75, "the next write does not reach the disk");
      EXPECT_TRUE(findings.empty()) << findings.text();
    }
  }
}

/// Returns the numbers, from now, of the file calls that a command makes.
std::vector<std::uint64_t> fileCalls(const Command& command) {
  Stage stage(commandStory());
  prepare(stage, command);
  std::vector<std::uint64_t> numbers;
  std::uint64_t number = 0;
  stage.world.faults().observe([&](SeamCall call) {
    ++number;
    if (virtualmac::describe(call).interface == "FileSystem") numbers.push_back(number);
  });
  command.perform(stage);
  stage.world.faults().observe({});
  // The helper is also killed after the last call.
  numbers.push_back(numbers.back() + 1);
  return numbers;
}

void killWithin(Stage& stage, const Command& command, std::uint64_t number) {
  prepare(stage, command);
  stage.world.faults().killAtCall(stage.world.callCounts().total + number);
  try {
    command.perform(stage);
  } catch (const HelperDied&) {
    // The kill was intended.
  }
  stage.world.faults().clear();
  // After the last call there was none left to die at.
  if (stage.world.helperRunning()) stage.world.killHelper();
}

void startAndWrite(Stage& stage, const std::optional<HelperState>& left) {
  stage.world.startHelper();
  stage.join();
  const auto started = stage.state();
  EXPECT_TRUE(started && left && started->chargeLimit == left->chargeLimit);
  EXPECT_TRUE(stage.setLimit(75));
  const auto next = recordOnDisk(stage.mac());
  EXPECT_TRUE(next && next->chargeLimit == 75);
  EXPECT_FALSE(stage.mac().disk.facts(HelperPersistence::temporaryPath).has_value());
}

TEST_P(StateFile, KeepsTheOldOrTheNewRecordWhenKilledAtAnyStep) {
  const std::vector<std::uint64_t> numbers = fileCalls(GetParam());
  ASSERT_GE(numbers.size(), 13U);
  for (const std::uint64_t number : numbers) {
    SCOPED_TRACE("killed at call " + std::to_string(number) + " of the command");
    Stage stage(commandStory());
    killWithin(stage, GetParam(), number);
    Findings findings;
    checkStateFile(findings, stage.mac());
    EXPECT_TRUE(findings.empty()) << findings.text();
    ASSERT_TRUE(recordOnDisk(stage.mac()).has_value());
    startAndWrite(stage, recordOnDisk(stage.mac()));
  }
}

TEST_P(StateFile, KeepsTheOldOrTheNewRecordWhenPowerIsLostAtAnyStep) {
  for (const std::uint64_t number : fileCalls(GetParam())) {
    for (std::uint64_t draw = 1; draw <= 4; ++draw) {
      SCOPED_TRACE("power lost at call " + std::to_string(number) + ", draw " +
                   std::to_string(draw));
      Stage stage(commandStory(), draw);
      killWithin(stage, GetParam(), number);
      const auto seen = recordOnDisk(stage.mac());
      stage.world.powerLoss();
      Findings findings;
      checkStateFile(findings, stage.mac());
      EXPECT_TRUE(findings.empty()) << findings.text();
      const auto left = recordOnDisk(stage.mac());
      ASSERT_TRUE(left.has_value());
      startAndWrite(stage, left);
    }
  }
}

std::string commandName(const testing::TestParamInfo<Command>& info) { return info.param.name; }
void PrintTo(const Command& command, std::ostream* out) { *out << command.name; }

INSTANTIATE_TEST_SUITE_P(EveryStep, StateFile, testing::ValuesIn(commands()), commandName);

// These tests cover other states of the disk.

TEST(StateFileTest, WritesOneByteAtATime) {
  Stage stage(commandStory());
  prepare(stage, commands().front());
  stage.mac().disk.shortWriteBytes = 1;
  EXPECT_TRUE(stage.setLimit(80));
  const auto record = recordOnDisk(stage.mac());
  EXPECT_TRUE(record && record->chargeLimit == 80);
}

TEST(StateFileTest, GoesOnInMemoryOnADiskThatIsFullOrReadOnly) {
  for (const bool full : {true, false}) {
    Stage stage(commandStory());
    prepare(stage, commands().front());
    (full ? stage.mac().disk.full : stage.mac().disk.readOnly) = true;
    EXPECT_TRUE(stage.setLimit(80));
    const auto told = stage.state();
    EXPECT_TRUE(told && told->chargeLimit == 80);
    stage.run(6);
    EXPECT_TRUE(stage.mac().smc.chargingInhibited());
    const auto kept = recordOnDisk(stage.mac());
    EXPECT_TRUE(kept && kept->chargeLimit == 60);
  }
}

TEST(StateFileTest, StartsWithDefaultsWhateverStandsInPlaceOfTheFile) {
  using virtualmac::Disk;
  const std::string_view path = HelperPersistence::statePath;
  const std::vector<std::function<void(Disk&)>> obstacles{
      [path](Disk& disk) { disk.writeFile(path, ""); },
      [path](Disk& disk) { disk.writeFile(path, "[]"); },
      [path](Disk& disk) { disk.writeFile(path, std::string(64, '\0')); },
      [path](Disk& disk) { disk.makeDirectory(path); },
      [path](Disk& disk) { disk.makeFifo(path); },
      [path](Disk& disk) { disk.makeHugeFile(path); },
  };
  for (const auto& obstacle : obstacles) {
    Stage stage(commandStory());
    obstacle(stage.mac().disk);
    stage.world.startHelper();
    stage.run(0.1);
    stage.join();
    const auto told = stage.state();
    ASSERT_TRUE(told.has_value());
    EXPECT_EQ(told->chargeLimit, 80);
    EXPECT_TRUE(hasLogLine(stage.world, "state.json corrupt — "));
    EXPECT_TRUE(stage.setLimit(70));
    stage.run(6);
    EXPECT_TRUE(stage.mac().smc.chargingInhibited());
  }
}

}  // namespace

}  // namespace sweeps
