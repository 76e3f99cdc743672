#include <algorithm>

#include "HelperPersistence.h"
#include "Tests/sweeps/StoryTest.h"

namespace sweeps {

namespace {

using virtualmac::SeamCall;

/// Returns the number of the call that made this version of the file durable; none: the story ends
/// before. A replaced name is durable once its directory was flushed.
std::optional<std::uint64_t> durableAfter(const Trace& trace, std::size_t version) {
  bool seen = false;
  for (std::size_t i = 0; i < trace.calls.size(); ++i) {
    if (trace.calls[i].fileVersion < version) continue;
    seen = seen || trace.calls[i].fileVersion == version;
    if (seen && trace.calls[i].call == SeamCall::fileFsync) return i + 1;
  }
  return std::nullopt;
}

/// Returns the contents that the file may have after a power loss at call k.
std::vector<std::optional<std::string>> allowedAt(const Trace& trace, std::uint64_t k) {
  const std::size_t version = trace.calls.at(k - 1).fileVersion;
  std::vector<std::optional<std::string>> allowed{trace.fileVersions.at(version)};
  if (version == 0) return allowed;
  const auto durable = durableAfter(trace, version);
  if (!durable || k <= *durable) allowed.push_back(trace.fileVersions.at(version - 1));
  return allowed;
}

/// New directory entries reach the disk by themselves after this time.
constexpr double writeBackSeconds = 30;

void losePowerAt(Stage& stage, Findings& findings, const Trace& trace, std::uint64_t k) {
  const bool newDirectory = !stage.mac().disk.facts(korvel::HelperPersistence::directory);
  stage.world.faults().killAtCall(k);
  stage.play();
  stage.world.faults().clear();
  if (stage.exited()) return;
  std::vector<std::optional<std::string>> allowed = allowedAt(trace, k);
  // The helper never flushes the parent of its own directory, so a fresh directory may vanish.
  if (newDirectory && stage.world.now() <= writeBackSeconds) allowed.emplace_back();
  stage.world.powerLoss();
  const auto content = stateFile(stage.mac());
  findings.expect(std::find(allowed.begin(), allowed.end(), content) != allowed.end(),
                  "state.json is neither the old nor the new record");
  if (content != trace.fileVersions.front()) checkStateFile(findings, stage.mac());
  findings.expect(stage.mac().power.assertions().empty(), "an assertion outlived the power");

  const auto before = recordOnDisk(stage.mac());
  stage.world.startHelper();
  stage.world.runFor(6);
  const auto after = recordOnDisk(stage.mac());
  findings.expect(after.has_value(), "no record after the start");
  findings.expect(!before || !after || before->chargeLimit == after->chargeLimit,
                  "the saved limit changed");
  findings.expect(!after || !(after->forceDischargeActive || after->sleepDisabledByKorvel),
                  "recovery left a flag set");
  checkStateFile(findings, stage.mac());
  checkIdleProcess(findings, stage.world);
  checkConduct(findings, stage.world, stage.invariants);
}

void sweepStory(const Story& story, std::string_view variant) {
  const Trace trace = traceStory(story);
  Sweep sweep(story, "*PowerLossSweep.*");
  for (const std::uint64_t k : chosenCalls(trace.calls.size(), 30)) {
    // The seed decides which unsynced changes survive.
    for (const std::uint64_t draw : {1U, 2U}) {
      const Case which{k, std::string(variant) + ":" + std::to_string(draw), 2 * k + draw};
      sweep.run(which,
                [&](Stage& stage, Findings& findings) { losePowerAt(stage, findings, trace, k); });
    }
  }
}

class PowerLossSweep : public StoryTest {};

TEST_P(PowerLossSweep, LeavesTheOldOrTheNewRecordOnceTheDirectoryStands) {
  Story story = GetParam();
  story.prepare = [told = GetParam().prepare](virtualmac::Machine& mac) {
    mac.disk.makeDirectory(korvel::HelperPersistence::directory, 0700);
    if (told) told(mac);
  };
  sweepStory(story, "installed");
}

TEST_P(PowerLossSweep, LeavesOneWholeRecordOrNoneOnAFreshDisk) { sweepStory(GetParam(), "fresh"); }

INSTANTIATE_TEST_SUITE_P(Stories, PowerLossSweep, testing::ValuesIn(stories()), storyName);

}  // namespace

}  // namespace sweeps
